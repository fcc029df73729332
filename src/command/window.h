// What a command says and asks in a window that somebody opened by a double click.
#pragma once

#include <string>
#include <string_view>

namespace velmora {

// Titles the window and says what it is and how to end it.
void explain_start_window();
void explain_stop_window();

// Asks a question that is answered by y or n. Anything but a yes is a no, and so is the end of the input.
[[nodiscard]] bool ask(std::string_view question);

// Returns the sentence for such a window: its remedy, which follows the last colon and blank, names the
// scripts to double-click in place of the commands.
[[nodiscard]] std::string name_scripts(std::string_view sentence);

// Keeps the window open until somebody has read it.
void wait_for_enter();

}  // namespace velmora
