// Removes what a phone leaves on the PC. Nothing here allocates or follows a symbolic link, so a forked
// process of a program with threads may use it on what the phone's programs have made.
#pragma once

namespace simulator {

// Removes a file, or a directory with everything in it, whatever the rights on its entries. The path is
// relative to the descriptor of a directory, or AT_FDCWD.
void RemoveTree(int directory, const char* name);
void RemoveTree(const char* path);

// Removes a symbolic link that still leads to `target`. Anything else at the path stays.
void RemoveLink(const char* path, const char* target);

}  // namespace simulator
