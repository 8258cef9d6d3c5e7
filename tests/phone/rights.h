// Giving up rights, for good: only in a child.
#pragma once

#include <cstdint>

bool KeepCapabilities(uint64_t kept);
// Refuses what a container engine's own filter refuses to a process without CAP_SYS_ADMIN, and Landlock.
bool RefuseMountsAndNamespaces();
bool BecomeOrdinaryUser();
bool UserNamespacesAreAllowed();
// Root with the rights of a plain container.
bool BecomeContainersRoot();
