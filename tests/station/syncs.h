// What this process has asked to be on the disk. The test program's fsync and fdatasync note it (--wrap).
#pragma once

#include <string>

// The names of the files and folders since the last call, in their order, each with a blank after it. A
// number of 16 or more characters in a name is left out: "numbers-0123456789abcdef.json" is "numbers.json".
std::string TakeSyncs();
