// Whether a folder knows names in more than one spelling. Platform only.
#pragma once

namespace TesselServer {

// Whether the file system of the folder open as `descriptor` itself takes names in other spellings than it lists, those
// of letters beyond ASCII included (FS_CASEFOLD_FL, ioctl_iflags(2)).
bool TakesOtherSpellings(int descriptor);

}  // namespace TesselServer
