#include "app/cli.h"
#include "app/report_commands.h"

#include "core/environment.h"
#include "nla/login_form.h"
#include "nla/nla_login.h"
#include "platform/defaults_store.h"
#include "settings/launch_plan.h"
#include "settings/plan_listing.h"
#include "settings/settings_store.h"

#include <cstdio>
#include <iostream>
#include <string>
#include <termios.h>
#include <unistd.h>

namespace velmora {

namespace {

constexpr const char* usage =
    "usage: velmora [command]\n"
    "  (no command)          run Velmora\n"
    "  plan                  print the server's arguments and environment for the current settings\n"
    "  login set USER        save the Windows login (password read from standard input)\n"
    "  login show            print the Windows login's user name, or \"not set\"\n"
    "  login clear           remove the Windows login\n"
    "  diagnostics           print the diagnostics report\n"
    "  test-connection       print the connection test's report\n";

int usageError() {
    std::fputs(usage, stderr);
    return 2;
}

int printPlan() {
    platform::DefaultsStore store;
    registerDefaultsAndMigrate(store);
    Environment own = processEnvironment();
    LaunchPlan plan = buildLaunchPlan(own, currentSettings(store));
    std::fputs(planListing(plan, own).c_str(), stdout);
    return 0;
}

// One line from standard input, without echo when it is a terminal.
std::string readPassword() {
    const bool terminal = ::isatty(STDIN_FILENO) == 1;
    termios saved{};
    if (terminal && ::tcgetattr(STDIN_FILENO, &saved) == 0) {
        termios quiet = saved;
        quiet.c_lflag &= static_cast<tcflag_t>(~ECHO);
        ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
        std::fputs("Password: ", stderr);
    }
    std::string password;
    std::getline(std::cin, password);
    if (!password.empty() && password.back() == '\r') password.pop_back();
    if (terminal) {
        ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved);
        std::fputs("\n", stderr);
    }
    return password;
}

int login(int argc, char** argv) {
    if (argc < 3) return usageError();
    std::string action = argv[2];
    if (action == "show" && argc == 3) {
        auto name = NLALogin::user(NLALogin::load());
        std::printf("%s\n", name ? name->c_str() : "not set");
        return 0;
    }
    if (action == "clear" && argc == 3) {
        NLALogin::clear();
        return 0;
    }
    if (action == "set" && argc == 4) {
        std::string password = readPassword();
        if (auto message = LoginForm::apply(argv[3], password)) {
            std::fprintf(stderr, "%s\n", message->c_str());
            return 1;
        }
        return 0;
    }
    return usageError();
}

}  // namespace

std::optional<int> runCommandLine(int argc, char** argv) {
    if (argc < 2) return std::nullopt;
    std::string command = argv[1];
    if (command == "plan" && argc == 2) return printPlan();
    if (command == "login") return login(argc, argv);
    if (command == "diagnostics" && argc == 2) return printDiagnostics();
    if (command == "test-connection" && argc == 2) return printConnectionTest();
    if (command == "help" || command == "--help" || command == "-h") {
        std::fputs(usage, stdout);
        return 0;
    }
    return usageError();
}

}  // namespace velmora
