// vessa-sim's commands that use a card through the simulated module, as a
// second program beside the card manager would: write a data object, send a
// PIN check. They load the module themselves and share the cards' state.
#pragma once

#include <string>
#include <vector>

namespace VessaSim {

// vessa-sim write <slot> <label> <text> [<times>]
// vessa-sim verify <slot> <p2> [<pin>] [<times>]
// Exit status 0 on success, 1 when the module refuses, 2 for bad arguments.
int runCardSessionCommand(const std::string& command, const std::vector<std::string>& args);

} // namespace VessaSim
