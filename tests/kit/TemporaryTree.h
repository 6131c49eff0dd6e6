// A folder of files that lives as long as the test.
#pragma once

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace TesselServer::Kit {

class TemporaryTree {
 public:
  explicit TemporaryTree(const std::filesystem::path& parent = std::filesystem::temp_directory_path()) {
    std::string pattern = (parent / "tessel-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary folder");
    path_ = pattern;
  }
  TemporaryTree(const TemporaryTree&) = delete;
  TemporaryTree& operator=(const TemporaryTree&) = delete;
  ~TemporaryTree() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  const std::filesystem::path& Path() const { return path_; }
  std::string Text() const { return path_.string(); }

  // Writes a file, with the folders that lead to it. Returns its path.
  std::string Write(std::string_view relative, std::string_view bytes) const {
    const auto path = path_ / relative;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary | std::ios::trunc)
        .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return path.string();
  }
  std::string MakeFolder(std::string_view relative) const {
    std::filesystem::create_directories(path_ / relative);
    return (path_ / relative).string();
  }

 private:
  std::filesystem::path path_;
};

}  // namespace TesselServer::Kit
