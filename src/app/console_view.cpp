#include "app/console_view.h"

#include "platform/login_item.h"

namespace velmora {

void ConsoleView::say(const std::string& line) { std::fprintf(out_, "velmora: %s\n", line.c_str()); }

void ConsoleView::show(const MenuState& state) {
    std::string line = state.running ? "Velmora Server running (pid " + std::to_string(state.serverPid) + ")"
                                     : state.statusLine;
    if (line == shown_) return;
    shown_ = line;
    say(line);
}

void ConsoleView::openSettings(SettingsForm&) {
    say("a second Velmora asked for the settings window, which --headless does not have");
}

int ConsoleView::runAlert(const Alert& alert) {
    say(alert.message + ": " + alert.informative);
    return 0;
}

bool ConsoleView::opensAtLogin() { return platform::opensAtLogin(); }

std::optional<std::string> ConsoleView::setOpensAtLogin(bool on) { return platform::setOpensAtLogin(on); }

}  // namespace velmora
