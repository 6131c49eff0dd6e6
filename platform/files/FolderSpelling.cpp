#include "platform/files/FolderSpelling.h"

#include <linux/fs.h>
#include <sys/ioctl.h>

namespace TesselServer {

bool TakesOtherSpellings(int descriptor) {
  int flags = 0;
  return ioctl(descriptor, FS_IOC_GETFLAGS, &flags) == 0 && (flags & FS_CASEFOLD_FL) != 0;
}

}  // namespace TesselServer
