// The phone's GPIO driver: lines, flags and power control by private requests, _IOW('O', nr, 4) or
// _IOR('O', nr, 4). Each routine that owns requests names their numbers beside itself.
#pragma once

constexpr char GPIO_DEVICE[] = "/dev/misc/omap730_gpio";

// Opens the driver read-write, issues one request that carries no argument, and closes it. A driver that is
// missing or refuses goes unnoticed: none of the callers has a use for the failure.
void IssueGpioRequest(unsigned long request);
