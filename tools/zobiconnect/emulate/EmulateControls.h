#pragma once

#include <sys/types.h>
#include <termios.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ZobiConnectKit/simulation/SimulatedBeacon.h"
#include "tools/zobiconnect/emulate/Teller.h"
#include "zobi/platform/RunLoop.h"

namespace zobi::tool {

/// What the user does to a beacon while it is on the air: each key of a terminal does something, or else each
/// line of a script that stdin comes from.
class EmulateControls {
public:
    struct Actions {
        std::function<void()> disconnectCentrals;
        std::function<void()> quit;
        Teller tell;
    };

    /// Tells what the keys do, if there are some, and reads them from then on.
    /// @param runLoop must outlive it, as `beacon` must.
    EmulateControls(platform::RunLoop& runLoop, SimulatedBeacon& beacon, Actions actions);
    /// Gives the terminal back as it was.
    ~EmulateControls();
    EmulateControls(const EmulateControls&) = delete;
    EmulateControls& operator=(const EmulateControls&) = delete;

private:
    void watchInput();
    /// Watches the terminal while its keys are for this process.
    void followTerminal();
    /// Has the terminal give each key at once, and not show it.
    void takeTerminal();
    /// Does what was entered, or a bounded part of it.
    void readInput();
    void obeyLines(std::string_view input);
    void obeyKey(char key);
    void obeyLine(std::string_view line);
    /// @returns whether there is such a command, with such arguments.
    bool obeyWords(const std::vector<std::string_view>& words);
    void press(int action, double seconds);
    void setBattery(int level);
    void setTemperature(int degrees);
    void setAccelerometer(int x, int y, int z);
    void tellKeys() const;
    void tellValue(const char* name, const nlohmann::ordered_json& value, const std::string& line) const;
    void turn();
    void setSilent(bool isSilent);

    platform::RunLoop& runLoop_;
    SimulatedBeacon& beacon_;
    Actions actions_;
    const bool isTerminal_;
    /// How the terminal was; absent until it is taken.
    std::optional<termios> terminal_;
    std::shared_ptr<platform::NSTimer> terminalTimer_;
    std::shared_ptr<platform::RunLoopSource> input_;
    std::string unread_;
    std::size_t turns_ = 0;
};

}  // namespace zobi::tool
