// velmora-server: Velmora's server on Linux. Answers the permission probe itself and otherwise runs
// Debian's freerdp-shadow-cli with the arguments and login it understands.

#include "core/environment.h"
#include "core/text.h"
#include "server-linux/display_probe.h"
#include "server-linux/sam_file.h"
#include "server-linux/server_translation.h"
#include "server-linux/shadow_runner.h"

#include <cstdio>
#include <optional>
#include <unistd.h>

using namespace velmora;
using namespace velmora::ServerHelper;

namespace {

std::string valueOf(const Environment& environment, const char* name) {
    auto found = environment.find(name);
    return found == environment.end() ? std::string() : found->second;
}

}  // namespace

int main(int argc, char** argv) {
    const pid_t parent = ::getppid();
    const Environment environment = processEnvironment();

    // The probe keeps every signal at its default, so that a stuck display connection still ends
    // when asked to.
    if (probeMode(environment)) {
        DisplayAccess access = probeDisplay(valueOf(environment, "DISPLAY"));
        std::fputs(probeLine(access.screen, access.input).c_str(), stdout);
        return 0;
    }
    blockHelperSignals();

    std::vector<std::string> arguments(argv + 1, argv + argc);
    std::optional<SamFile> sam;
    if (asksForNla(arguments)) {
        auto entry = environment.find("MAC_SHADOW_NLA");
        auto login = entry == environment.end() ? std::nullopt : parseLoginEntry(entry->second);
        if (entry == environment.end())
            std::fputs("velmora-server: NLA asked for without a Windows login; NLA stays off\n", stderr);
        else if (!login)
            std::fputs("velmora-server: the Windows login is malformed; NLA stays off\n", stderr);
        else if (!nlaCanMatch(login->user))
            std::fputs("velmora-server: FreeRDP 2 cannot match a Windows login name with letters beyond "
                       "ASCII over NLA; clients will be refused\n", stderr);
        if (login && !sam.emplace(*login).valid())
            std::fputs("velmora-server: could not hold the login in memory; NLA stays off\n", stderr);
    }
    std::optional<std::string> samPath;
    if (sam && sam->valid()) samPath = samServerPath;
    ShadowArguments translated = shadowArguments(arguments, samPath);
    if (!translated.dropped.empty())
        std::fprintf(stderr, "velmora-server: left out, not known to freerdp-shadow-cli: %s\n",
                     text::join(translated.dropped, " ").c_str());

    RunRequest request;
    // A development and test override, like KORVEN_CLI on the application's side.
    std::string override = valueOf(environment, "VELMORA_SHADOW_SERVER");
    request.executable = override.empty() ? shadowServerPath : override;
    request.arguments = translated.arguments;
    request.environment = shadowEnvironment(environment);
    request.watchParent = watchesParent(environment);
    request.parent = parent;
    if (samPath) request.passOn = sam->descriptor();
    std::fflush(stderr);
    int code = runShadowServer(request);
    sam.reset();
    return code;
}
