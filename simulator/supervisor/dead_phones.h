// What phones left whose simulator and guardian were both killed.
#pragma once

namespace simulator {

// Ends their processes and removes their files, those of this user only.
void RemoveDeadPhones();

}  // namespace simulator
