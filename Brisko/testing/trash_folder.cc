#include "testing/trash_folder.h"

#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <stdexcept>

#include "base/atomic_file.h"
#include "testing/subprocess.h"

namespace brisko::testing {

namespace {

void writeBytes(const std::string& path, std::int64_t bytes) {
  std::ofstream out(path, std::ios::binary);
  const std::string block(4096, 'x');
  for (std::int64_t left = bytes; left > 0; left -= 4096)
    out.write(block.data(), static_cast<std::streamsize>(std::min<std::int64_t>(left, 4096)));
  if (!out) throw std::runtime_error("Cannot write " + path);
}

}  // namespace

TrashFolder::TrashFolder(std::string path) : path_(std::move(path)) {
  createPrivateDirectories(files());
  createPrivateDirectories(info());
}

std::string TrashFolder::addFile(const std::string& name, std::int64_t bytes) const {
  writeBytes(entry(name), bytes);
  addInfo(name);
  return entry(name);
}

std::string TrashFolder::addFolder(const std::string& name, int files, std::int64_t bytes) const {
  const std::string top = entry(name);
  ::mkdir(top.c_str(), 0755);
  ::mkdir((top + "/inner").c_str(), 0755);
  for (int i = 0; i < files; ++i)
    writeBytes(top + (i % 2 ? "/inner/" : "/") + std::to_string(i), bytes);
  addInfo(name);
  return top;
}

std::string TrashFolder::addLink(const std::string& name, const std::string& target) const {
  if (::symlink(target.c_str(), entry(name).c_str()) != 0)
    throw std::runtime_error("Cannot link " + entry(name));
  addInfo(name);
  return entry(name);
}

void TrashFolder::addInfo(const std::string& name) const {
  std::ofstream(info() + "/" + name + ".trashinfo")
      << "[Trash Info]\nPath=/somewhere/" << name << "\nDeletionDate=2026-01-02T03:04:05\n";
}

std::int64_t duBytes(const std::string& path) {
  const ProcessResult du = runProcess({"du", "-sB1", "-P", "--", path});
  if (du.exitStatus != 0) throw std::runtime_error("du failed: " + du.standardError);
  return std::stoll(du.standardOutput);
}

}  // namespace brisko::testing
