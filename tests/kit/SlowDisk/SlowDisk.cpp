// slow_disk FOLDER MOUNTPOINT MILLISECONDS: a file system in user space that shows FOLDER, for reading only, at
// MOUNTPOINT, and sleeps in each reading of a file and of a folder's names; after that for as long as there is a file
// FOLDER.held, ten seconds at most. As long as there is a file FOLDER.held-all, every call waits so. The kernel
// remembers nothing of what it was told. In the foreground, until SIGTERM or `fusermount3 -u`.
#define FUSE_USE_VERSION 31
#include <dirent.h>
#include <fcntl.h>
#include <fuse3/fuse.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string>
#include <thread>

namespace {

std::string root;
std::chrono::milliseconds delay;

std::string At(const char* path) { return root + path; }

void WaitWhileThereIs(const std::string& file) {
  const auto start = std::chrono::steady_clock::now();
  while (access(file.c_str(), F_OK) == 0 && std::chrono::steady_clock::now() - start < std::chrono::seconds(10)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

void WaitAsAll() { WaitWhileThereIs(root + ".held-all"); }

void Wait() {
  std::this_thread::sleep_for(delay);
  WaitWhileThereIs(root + ".held");
  WaitAsAll();
}

void* Begin(fuse_conn_info*, fuse_config* configuration) {
  configuration->entry_timeout = configuration->attr_timeout = configuration->negative_timeout = 0;
  return nullptr;
}

int Attributes(const char* path, struct stat* status, fuse_file_info*) {
  WaitAsAll();
  return lstat(At(path).c_str(), status) == 0 ? 0 : -errno;
}

int OfWhole(const char* path, struct statvfs* facts) {
  WaitAsAll();
  return statvfs(At(path).c_str(), facts) == 0 ? 0 : -errno;
}

int Open(const char* path, fuse_file_info* file) {
  WaitAsAll();
  const int opened = open(At(path).c_str(), O_RDONLY | O_CLOEXEC);
  if (opened < 0) return -errno;
  file->fh = static_cast<std::uint64_t>(opened);
  return 0;
}

int Read(const char*, char* bytes, std::size_t size, off_t offset, fuse_file_info* file) {
  Wait();
  const ssize_t got = pread(static_cast<int>(file->fh), bytes, size, offset);
  return got < 0 ? -errno : static_cast<int>(got);
}

int Release(const char*, fuse_file_info* file) {
  close(static_cast<int>(file->fh));
  return 0;
}

int ReadNames(const char* path, void* names, fuse_fill_dir_t fill, off_t, fuse_file_info*, fuse_readdir_flags) {
  Wait();
  DIR* const folder = opendir(At(path).c_str());
  if (folder == nullptr) return -errno;
  while (const dirent* entry = readdir(folder)) fill(names, entry->d_name, nullptr, 0, fuse_fill_dir_flags{});
  closedir(folder);
  return 0;
}

int ReadLink(const char* path, char* target, std::size_t size) {
  WaitAsAll();
  const ssize_t length = readlink(At(path).c_str(), target, size - 1);
  if (length < 0) return -errno;
  target[length] = '\0';
  return 0;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 4) {
    std::fputs("Usage: slow_disk FOLDER MOUNTPOINT MILLISECONDS\n", stderr);
    return 2;
  }
  root = arguments[1];
  delay = std::chrono::milliseconds(std::atoi(arguments[3]));
  fuse_operations operations{};
  operations.init = Begin;
  operations.getattr = Attributes;
  operations.statfs = OfWhole;
  operations.open = Open;
  operations.read = Read;
  operations.release = Release;
  operations.readdir = ReadNames;
  operations.readlink = ReadLink;
  char foreground[] = "-f";
  char* forFuse[] = {arguments[0], foreground, arguments[2], nullptr};
  return fuse_main(static_cast<int>(std::size(forFuse)) - 1, forFuse, &operations, nullptr);
}
