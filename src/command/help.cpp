#include "command/help.h"

namespace velmora {
namespace {

constexpr std::string_view overview =
    "velmora runs the Velmora service on this computer and talks to it.\n"
    "\n"
    "  velmora start                 run Velmora in this window until Ctrl+C\n"
    "  velmora open                  open its page in the browser\n"
    "  velmora status                show whether the effect works, and its settings\n"
    "  velmora stop                  end Velmora\n"
    "\n"
    "  velmora start --help          more about one command\n"
    "  velmora --version             the version of this program\n"
    "\n"
    "Exit codes:\n"
    "   0  done\n"
    "   2  the command line is wrong\n"
    "  20  Velmora is not running\n"
    "  21  Velmora is already running\n"
    "  22  a browser or another program holds the service, so it does not answer or end\n"
    "  23  the file about the running service belongs to somebody else or cannot be read\n"
    "  24  that file cannot be written, so nothing was started or stopped\n"
    "  25  the service was killed, crashed, or was ended at once\n"
    "  26  another program or another Velmora service uses the port\n"
    "  27  the service program cannot be started\n"
    "  28  the browser cannot be opened\n"
    "  29  the service's answer makes no sense\n"
    "  30  the output cannot be written, for example because the disk is full\n"
    "1 to 10 come from the service when it cannot start or its self-test fails.\n";

constexpr std::string_view start_help =
    "Runs the Velmora service in this window until Ctrl+C.\n"
    "\n"
    "  velmora start\n"
    "  velmora start --port 18000\n"
    "  velmora start --open-browser --verbose\n"
    "\n"
    "The page is at the address that is printed. Without --port it is on the first free port from 17831 to\n"
    "17850. If another Velmora service, perhaps of another user, answers on a port before that one, nothing\n"
    "is started (exit code 26). Without --web-root the pages come from the folder \"web\" beside this\n"
    "program. All options are those of velmora_control_demo, and go to it unchanged.\n"
    "\n"
    "  velmora start --window        for a window that somebody opened by a double click: it says what it "
    "is,\n"
    "                                offers to start as administrator, and opens the page\n"
    "\n"
    "Velmora runs once for each user. While it runs, the file run.json holds its address and the key to it.\n"
    "Only you and administrators can read it. It is in %LOCALAPPDATA%\\Velmora\\Control (on Linux:\n"
    "~/.local/state/velmora/control).\n"
    "\n"
    "The exit code is that of the service, or 25 if the service is killed or crashes.\n";

constexpr std::string_view stop_help =
    "Ends the Velmora service that velmora start runs for you, and no other.\n"
    "\n"
    "  velmora stop                  ends it cleanly; if you are signed in, you are signed out\n"
    "  velmora stop --force          ends it at once; if you are signed in, you stay signed in at the\n"
    "                                account service until that session expires\n"
    "\n"
    "The service ends as soon as the browser or the program that it answers is done. If that takes more "
    "than\n"
    "5 seconds, the exit code is 22; the service still ends later.\n"
    "\n"
    "  velmora stop --window         for a window that somebody opened by a double click: asks where "
    "needed\n";

constexpr std::string_view status_help =
    "Shows whether the effect works, from \"installed\" to \"applied\", and the settings, one line each.\n"
    "\n"
    "  velmora status\n"
    "  velmora status --json         everything as one JSON object\n"
    "\n"
    "It looks twice, half a second apart, to see whether sound goes through the effect.\n";

constexpr std::string_view open_help =
    "Opens the page of the running service in the browser.\n"
    "\n"
    "  velmora open\n";

constexpr std::string_view interrupt_help =
    "Sends Ctrl+C to a process. velmora start uses it to end the service.\n"
    "\n"
    "  velmora interrupt 1234\n"
    "\n"
    "The exit code is 20 if there is no such process, and 2 if you may not interrupt it.\n";

}  // namespace

std::string_view help_text(CommandName command) {
  switch (command) {
    case CommandName::start: return start_help;
    case CommandName::stop: return stop_help;
    case CommandName::status: return status_help;
    case CommandName::open: return open_help;
    case CommandName::interrupt: return interrupt_help;
    default: return overview;
  }
}

}  // namespace velmora
