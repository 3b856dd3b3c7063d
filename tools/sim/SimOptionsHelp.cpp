#include "tools/sim/SimOptions.h"

namespace sim {

std::string SimOptions::versionText() {
    return std::string("ambrelis-sim ") + AMBRELIS_SIM_VERSION;
}

std::string SimOptions::helpText() {
    return R"(Usage: ambrelis-sim [options]

Plays the Ambrelis controller for the arp-presence driver: listens on 127.0.0.1, starts the
driver as the controller does, answers its request for units, and shows what it reports.

Options:
  --port N          port to listen on (default 20300); 0, or a busy port, takes a free one
  --driver PATH     driver to start (default: arp-presence beside this program)
  --id ID           connection id passed to the driver and expected in its greeting
                    (default sim-1)
  --units FILE      read units from FILE (may be given more than once)
  --unit ID,NAME,ADDRESS
                    one unit in the units-file form (may be given more than once)
  --for SECONDS     send "close" after SECONDS and end with the driver
  --log-lines N     driver log lines kept on screen (default 10)
  --help            this text
  --version         the version

Units file: one unit a line, "uniqueid, name, address", separated by commas, blanks around
each field trimmed. Blank lines and lines starting with # are ignored.
  uniqueid  a whole number from 1 up, used once
  name      any text without commas, not empty
  address   an IPv4 address or a host name (the driver pings it), or a hardware address of
            six two-digit hex groups joined by colons (the driver looks for it in the
            neighbour table); used once, letter case aside
Example:
  # id, name, address
  1, Router, 192.168.1.1
  2, Phone, 02:fc:3a:11:9e:40
Every bad line is reported, as FILE:LINE: what is wrong (a bad --unit as --unit VALUE: what
is wrong), and then nothing is started (exit status 2).

Keys (when standard input is a terminal):
  p     send "ping" and show the answer
  d     switch debug mode on or off ("debug" message)
  D     send the control message D, which toggles debug mode
  c, q  send "close"
Ctrl-C or SIGTERM also sends "close"; a second one stops the driver at once.

Without a terminal on standard output, each event is printed as one line, "12.3s what".

Exit status: the driver's own (128 + the signal, if one ended it); 1 when the driver had to be
killed or never connected; 2 for a bad command line or units file.
)";
}

}  // namespace sim
