#pragma once

#include <string>

namespace vexa {

// Moves an item to the user's Trash the way the desktop does (FreeDesktop Trash with its
// .trashinfo record, so a file manager can restore it).
bool platformMoveToTrash(const std::string& path);

}  // namespace vexa
