// The ways in which a path is opened: anywhere, or beneath a folder that it cannot leave.
//
// Thread:    any.
// Ownership: the caller owns the descriptor that is returned.
// Errors:    a negative errno value in place of a descriptor; errno itself means nothing afterwards.
#pragma once

#include <errno.h>

#include <string>

namespace TesselServer {

// Opens `path` with open(2) `flags`, starting at the descriptor `folder` when it is relative; "" is the folder itself.
using OpenFunction = int (*)(int folder, const std::string& path, int flags);

// Follows every link.
int OpenAnywhere(int folder, const std::string& path, int flags);

// Stays beneath `folder` (openat2(2), RESOLVE_BENEATH) and follows links that do: -EXDEV for a link that is absolute
// or climbs out, wherever it ends. On a kernel that has no openat2, or in a sandbox that refuses it, OpenWithoutLinks.
int OpenBeneath(int folder, const std::string& path, int flags);

// Follows no link on the whole path (RESOLVE_NO_SYMLINKS): -ELOOP where there is one. So a path without ".." stays
// where its text says, whatever else happens to its folders. Where the kernel or a sandbox does not offer that, it is
// OpenWithoutLinks below an open folder, and -ELOOP for a path that begins elsewhere.
int OpenDirectly(int folder, const std::string& path, int flags);

// Stays beneath `folder` by opening one component after the other and following no link at all: -ELOOP or -ENOTDIR.
// ".." is never found.
int OpenWithoutLinks(int folder, const std::string& path, int flags);

// Opening in a turn of the loop: no other mount is entered (RESOLVE_NO_XDEV), for it may be a disk that keeps each call
// waiting (SlowDisk.h). kElsewhere where the path leads to one, so that it has to be opened beside the loop; or where
// it cannot be known whether it does: for a relative path below the working folder, where the system's root itself may
// have to be waited for, and without openat2 for a path that no folder is given for.
inline constexpr int kElsewhere = -EREMOTE;

// Follows every link that stays on the mount; below an open folder no absolute one.
int OpenHere(int folder, const std::string& path, int flags);
// Follows absolute links as well, by way of the path that the folder has now. It may be another folder's by then: what
// is opened is good for questions only.
int OpenTargetHere(int folder, const std::string& path, int flags);
// As OpenBeneath, and kElsewhere in place of its -EXDEV: whether OpenHere goes where the path leads distinguishes a
// link that is absolute or climbs out.
int OpenBeneathHere(int folder, const std::string& path, int flags);
// As OpenDirectly.
int OpenDirectlyHere(int folder, const std::string& path, int flags);
// As OpenWithoutLinks, for a kernel that has no openat2: what lies on the device of `folder` counts as its mount.
int OpenWithoutLinksHere(int folder, const std::string& path, int flags);

// These raise a lack of descriptors or memory as the socket errors 10024 and 10055: what they ask for may well be
// there.
int OpenAnywhereOrRaise(int folder, const std::string& path, int flags);
int OpenBeneathOrRaise(int folder, const std::string& path, int flags);
int OpenDirectlyOrRaise(int folder, const std::string& path, int flags);
int OpenHereOrRaise(int folder, const std::string& path, int flags);
int OpenBeneathHereOrRaise(int folder, const std::string& path, int flags);
int OpenDirectlyHereOrRaise(int folder, const std::string& path, int flags);

// The absolute path without links that leads to an open descriptor, "" when it cannot be determined (/proc is not
// mounted, the path is too long or lies outside this process's root). " (deleted)" follows a name that has been
// removed.
std::string PathOfDescriptor(int descriptor);

}  // namespace TesselServer
