#include "app/cli.h"
#include "app/report_commands.h"

#include "core/app_version.h"
#include "core/environment.h"
#include "core/files.h"
#include "nla/login_form.h"
#include "nla/nla_login.h"
#include "platform/defaults_store.h"
#include "process/server_cert.h"
#include "settings/launch_plan.h"
#include "settings/plan_listing.h"
#include "settings/settings_store.h"

#include <cstdio>
#include <filesystem>
#include <iostream>
#include <string>
#include <termios.h>
#include <unistd.h>

namespace velmora {

namespace {

constexpr const char* usage =
    "usage: velmora [--headless | COMMAND]\n"
    "  (nothing)             run Velmora in the tray\n"
    "  --headless            run the server's supervisor without any window (stop it with Ctrl-C)\n"
    "  plan                  print the server's arguments and environment for the current settings\n"
    "  login set USER        save the Windows login (password read from standard input)\n"
    "  login show            print the Windows login's user name, or \"not set\"\n"
    "  login clear           remove the Windows login\n"
    "  diagnostics           print the diagnostics report\n"
    "  test-connection       print the connection test's report\n"
    "  certificate           print the server certificate's name, validity and fingerprints\n"
    "  --help                print this help\n"
    "  --version             print Velmora's version\n"
    "exit status: 0 done, 1 failed (the reason on standard error), 2 wrong command line\n";

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

// What the user compares with the certificate a Remote Desktop client asks them to trust.
int printCertificate() {
    std::string path = ServerCert::certPath();
    auto pem = files::readWhole(path);
    if (!pem) {
        std::error_code error;
        if (std::filesystem::exists(path, error))
            std::fprintf(stderr, "velmora: %s cannot be read\n", path.c_str());
        else
            std::fprintf(stderr, "velmora: the server has not made its certificate yet (%s); it makes one at its first start\n",
                         path.c_str());
        return 1;
    }
    auto summary = ServerCert::summary(*pem);
    if (!summary) {
        std::fprintf(stderr, "velmora: %s holds no certificate that can be read\n", path.c_str());
        return 1;
    }
    std::printf("Certificate: %s\n", path.c_str());
    std::printf("Subject: %s\n", summary->subject ? summary->subject->c_str() : "(no name)");
    std::printf("Valid from: %s\n", summary->validFrom.c_str());
    std::printf("Valid until: %s\n", summary->validUntil.c_str());
    std::printf("SHA-256 fingerprint: %s\n", summary->sha256.c_str());
    std::printf("SHA-1 fingerprint (thumbprint): %s\n", summary->sha1.c_str());
    return 0;
}

}  // namespace

std::optional<int> runCommandLine(int argc, char** argv) {
    if (argc < 2) return std::nullopt;
    std::string command = argv[1];
    if (command == "--headless" && argc == 2) return std::nullopt;  // the application itself
    if (command == "plan" && argc == 2) return printPlan();
    if (command == "login") return login(argc, argv);
    if (command == "diagnostics" && argc == 2) return printDiagnostics();
    if (command == "test-connection" && argc == 2) return printConnectionTest();
    if (command == "certificate" && argc == 2) return printCertificate();
    if ((command == "--help" || command == "-h" || command == "help") && argc == 2) {
        std::fputs(usage, stdout);
        return 0;
    }
    if (command == "--version" && argc == 2) {
        std::printf("velmora %s\n", appVersion().c_str());
        return 0;
    }
    return usageError();
}

}  // namespace velmora
