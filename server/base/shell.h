// The phone's own tools and /proc controls are reached through the shell, one command line at a time.
#pragma once

// Runs one command line, formatted as printf does and cut at 255 characters. Returns its status as `system`
// returns it.
int RunShell(const char* format, ...) __attribute__((format(printf, 1, 2)));
