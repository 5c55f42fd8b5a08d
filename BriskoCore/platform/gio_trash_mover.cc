// GIO's side of the Trash seam: built into BriskoSystemTrash, never into
// BriskoCore, so that the engine links no GLib.

#include <gio/gio.h>

#include "platform/trash_mover.h"

namespace brisko {

std::optional<std::string> TrashMover::move(const std::string& path) {
  // The same data folder that g_file_trash will use, read once per process.
  if (auto refused = refusal(path, g_get_user_data_dir())) return refused;
  GFile* file = g_file_new_for_path(path.c_str());
  GError* error = nullptr;
  const bool moved = g_file_trash(file, nullptr, &error);
  g_object_unref(file);
  if (moved) return std::nullopt;
  std::string message = error != nullptr && error->message != nullptr
                            ? error->message
                            : "The item couldn’t be moved to the Trash.";
  g_clear_error(&error);
  return message;
}

}  // namespace brisko
