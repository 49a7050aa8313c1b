#include "platform/bluez/service/ReportRate.h"

namespace zobi::platform::bluez {

std::string limitedRateText(const std::string& why) {
    return "If the controller filters duplicates strictly, as many do, each beacon is heard only about once "
           "in 10 s: " +
           why + '.';
}

std::string remedyForRate() {
    return "Turn on the experimental interfaces of the service, with Experimental = true under [General] in "
           "/etc/bluetooth/main.conf and systemctl restart bluetooth; or give the program the capability: "
           "setcap cap_net_admin+ep PROGRAM, or AmbientCapabilities=CAP_NET_ADMIN, RuntimeDirectory=NAME and "
           "RuntimeDirectoryPreserve=yes in its unit. With a controller that reports every advertisement, "
           "neither is needed.";
}

}  // namespace zobi::platform::bluez
