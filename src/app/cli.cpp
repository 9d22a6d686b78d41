#include "app/cli.h"
#include "app/report_commands.h"

#include "core/app_version.h"
#include "core/environment.h"
#include "core/files.h"
#include "core/text.h"
#include "nla/login_form.h"
#include "nla/nla_login.h"
#include "platform/defaults_store.h"
#include "platform/instance_socket.h"
#include "process/server_cert.h"
#include "settings/launch_plan.h"
#include "settings/plan_listing.h"
#include "settings/settings_store.h"

#include <cstdio>
#include <filesystem>
#include <iostream>
#include <poll.h>
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
    "  login set USER        save the Windows login; the password is one line on standard input\n"
    "                        (none keeps the stored password under the new name)\n"
    "  login show            print the Windows login's user name, or \"not set\"\n"
    "  login clear           remove the Windows login\n"
    "                        (a running Velmora restarts its server after a login set or clear)\n"
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

// The password: one line from standard input, without echo when it is a terminal. `problem` says
// why it cannot be used: a second line (it would be cut off silently), a NUL byte or bytes that are
// not UTF-8 (hashed into a password no client can type).
std::string readPassword(std::string& problem) {
    const bool terminal = ::isatty(STDIN_FILENO) == 1;
    termios saved{};
    if (terminal && ::tcgetattr(STDIN_FILENO, &saved) == 0) {
        termios quiet = saved;
        quiet.c_lflag &= static_cast<tcflag_t>(~ECHO);
        ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
        std::fputs("Password: ", stderr);
    }
    std::string password;
    bool moreLines = false;
    if (terminal) {
        std::getline(std::cin, password);
        // Pasted lines still waiting; restoring the terminal below discards them.
        pollfd waiting{STDIN_FILENO, POLLIN, 0};
        moreLines = ::poll(&waiting, 1, 0) > 0;
        ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved);
        std::fputs("\n", stderr);
    } else {
        constexpr std::size_t limit = 1 << 20;
        char chunk[4096];
        while (password.size() <= limit && std::cin.read(chunk, sizeof chunk).gcount() > 0)
            password.append(chunk, static_cast<std::size_t>(std::cin.gcount()));
        if (password.size() > limit) problem = "the password on standard input is longer than 1 MiB";
        if (!password.empty() && password.back() == '\n') password.pop_back();
    }
    if (!password.empty() && password.back() == '\r') password.pop_back();
    if (moreLines || password.find_first_of("\r\n") != std::string::npos)
        problem = "the password on standard input has more than one line";
    else if (password.find('\0') != std::string::npos)
        problem = "the password holds a NUL byte, which no client can send";
    else if (!text::isValidUtf8(password))
        problem = "the password is not UTF-8 text, which no client can send";
    return password;
}

// Tells a running Velmora that the login changed, and says what that did.
void applyToRunningServer(bool cleared) {
    // Long enough for the running server's stop (its grace period) before the answer.
    auto answer = platform::askRunningVelmora(platform::InstanceRequest::loginChanged, 30.0);
    if (answer == "restarted")
        std::puts(cleared ? "The running server was restarted without a Windows login."
                          : "The running server was restarted with the new Windows login.");
    else
        std::puts("Takes effect when the server next starts.");
}

int loginSet(const std::string& userField) {
    if (userField.find_first_not_of(" \t") == std::string::npos) {
        std::fputs("velmora: the user name is empty; \"velmora login clear\" removes the Windows login\n", stderr);
        return 1;
    }
    if (!text::isValidUtf8(userField)) {
        std::fputs("velmora: the user name is not UTF-8 text\n", stderr);
        return 1;
    }
    std::string problem;
    std::string password = readPassword(problem);
    if (!problem.empty()) {
        std::fprintf(stderr, "velmora: %s; nothing was changed\n", problem.c_str());
        return 1;
    }
    // No password renames the stored login, as in the settings window; but say so.
    const bool renaming = password.empty();
    if (renaming && !NLALogin::load()) {
        std::fputs("velmora: no password on standard input; a new Windows login needs one\n", stderr);
        return 1;
    }
    if (auto message = LoginForm::apply(userField, password)) {
        std::fprintf(stderr, "%s\n", message->c_str());
        return 1;
    }
    if (renaming)
        std::printf("No password given: kept the stored password, now under the name %s.\n",
                    NLALogin::user(NLALogin::load()).value_or(userField).c_str());
    applyToRunningServer(false);
    return 0;
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
        if (!NLALogin::load()) {
            std::puts("No Windows login is stored.");
            return 0;
        }
        NLALogin::clear();
        applyToRunningServer(true);
        return 0;
    }
    if (action == "set" && argc == 4) return loginSet(argv[3]);
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
