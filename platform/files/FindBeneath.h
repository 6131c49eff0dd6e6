// The look-up behind RootFolder, with the way of opening as an argument: what one kernel can do and another cannot is
// tried on any machine.
//
// Thread:    the host's thread only.
// Ownership: the folder's descriptor stays the caller's; the entry owns what it opened.
// Errors:    none; kNone for what cannot be had.
#pragma once

#include <string_view>

#include "platform/files/FileSystem.h"
#include "platform/files/OpenPaths.h"

namespace TesselServer {

class KnownFolders;

// What RootFolder::Find promises for the folder open as `root`, opened through `open`. Names that have to be read are
// taken from and kept in `known`, if there is one.
FoundEntry FindBeneath(OpenFunction open, int root, std::string_view relative, KnownFolders* known = nullptr);

}  // namespace TesselServer
