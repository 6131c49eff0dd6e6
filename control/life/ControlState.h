// What the parts of a control share: its settings, counters, sockets, slots and switches. Each part documents which of
// them it changes.
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>

#include "control/connection/Manner.h"
#include "control/connection/MemoryBudget.h"
#include "control/connection/Slot.h"
#include "control/life/Reporter.h"
#include "control/life/Settings.h"
#include "control/life/Statistics.h"
#include "http/ContentTypeMemory.h"
#include "http/SecretFiles.h"
#include "net/HostNames.h"
#include "platform/files/FileSystem.h"
#include "platform/loop/EventLoop.h"
#include "platform/loop/Timer.h"
#include "platform/programs/ChildPrograms.h"
#include "platform/sockets/SocketArray.h"
#include "platform/tasks/Turns.h"
#include "platform/world/World.h"

namespace TesselServer {

// The element that listens; connections have the elements above it.
inline constexpr std::int32_t kListener = 1;
inline constexpr std::int32_t kFirstConnection = 2;

// What the bodies of all connections, and the pages on their way to them, may take of memory unless the host says
// otherwise: a few of the largest, and little of what a machine has.
inline constexpr std::int64_t kDefaultMaxBodyBytesTotal = 256LL * 1024 * 1024;
inline constexpr std::int64_t kDefaultMaxUnsentPageBytes = 256LL * 1024 * 1024;

struct ControlState {
  ControlState(EventLoop& eventLoop, Tessel& owner, SocketNotifications& notifications)
      : loop(eventLoop),
        world(eventLoop.TheWorld()),
        reporter(owner, statistics),
        workers(eventLoop),
        turns(eventLoop, workers),
        names(eventLoop, workers),
        sckWS(eventLoop, notifications, &turns),
        programs(eventLoop, workers),
        tmrCheckConn(eventLoop),
        requestTemplate(world) {
    requestTemplate.TypeMemory(std::make_shared<ContentTypeMemory>());
  }

  EventLoop& loop;
  World& world;
  Settings settings;
  Statistics statistics;
  Reporter reporter;
  Workers workers;
  Turns turns;
  HostNames names;
  SocketArray sckWS;
  ChildPrograms programs;
  Timer tmrCheckConn;
  cls_HTTP requestTemplate;                             // the control-wide settings that records share
  MemoryBudget bodyMemory{kDefaultMaxBodyBytesTotal};   // for bodies, over all slots
  MemoryBudget pageMemory{kDefaultMaxUnsentPageBytes};  // for pages that are on their way, over all slots
  std::shared_ptr<SlotTable> slots;
  Manner* manner = nullptr;  // of this run; never null once the control is made

  bool running = false;                  // from StartServer to StopServer, a failed start included
  bool holdConnections = false;          // connection requests are left waiting
  bool terminated = false;               // the control is gone; its parts only unwind
  std::uint32_t stopCount = 0;           // how often StopServer ran: a start that sees it change gives up
  std::uint32_t lastConnectionTick = 0;  // milliseconds at the latest connection request, wrapping
  std::string listenIP;                  // the address of this run's listener, "" for all
  std::int32_t listenPort = 0;           // its port; the one obtained, where ServerPort is 0
  std::string authFileName;              // name of the per-directory password file
  std::string serverNameInUse;
  std::string serverAddressInUse;
  std::string applicationFolder;  // served where VirtualPath is "", and holds the error pages
  std::int64_t maxBodyBytes = Reception::kDefaultMaxBodyBytes;

  // VirtualPath, opened, and the files that are never served, both as the settings have them now. Records share them,
  // and tasks that wait keep what they began with.
  const std::shared_ptr<const RootFolder>& Root() { return Kept(root_, settings.VirtualPath); }
  // CGIDirectory, likewise.
  const std::shared_ptr<const RootFolder>& Programs() { return Kept(programsRoot_, settings.CGIDirectory); }
  const std::shared_ptr<const SecretFiles>& Secrets() {
    const e_AuthSource source = settings.AuthenticationSource;
    if (!secrets_ || !secrets_->AreOf(authFileName, source, settings.AuthenticationSourceFile)) {
      secrets_ = std::make_shared<SecretFiles>(authFileName, source, settings.AuthenticationSourceFile);
    }
    return secrets_;
  }

  // The highest connection element that both the settings and the slots of this run allow.
  std::int32_t HighestConnection() const {
    return slots ? std::min<std::int32_t>(settings.MaxConnections, slots->HighestIndex()) : 0;
  }

  std::uint32_t TickCount() const { return static_cast<std::uint32_t>(world.MonotonicMilliseconds()); }

 private:
  const std::shared_ptr<const RootFolder>& Kept(std::shared_ptr<const RootFolder>& folder, const std::string& path) {
    if (!folder || folder->Path() != path || folder->Match() != manner->Names()) {
      folder = std::make_shared<RootFolder>(path, world, manner->Names());
    }
    return folder;
  }

  std::shared_ptr<const RootFolder> root_;
  std::shared_ptr<const RootFolder> programsRoot_;
  std::shared_ptr<const SecretFiles> secrets_;
};

}  // namespace TesselServer
