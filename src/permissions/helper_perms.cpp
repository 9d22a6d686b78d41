#include "permissions/helper_perms.h"

#include "core/environment.h"
#include "core/text.h"
#include "platform/app_log.h"
#include "permissions/perm_probe.h"
#include "platform/descriptors.h"
#include "platform/helper_location.h"
#include "platform/paths.h"
#include "platform/system_info.h"
#include "process/spawn.h"
#include "settings/keys.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace velmora {

namespace {

// The privacy reset itself; needs nothing of the service, so it runs even after the service is gone.
void resetEntry(const std::optional<std::string>& tool, const std::string& service, const std::string& bundleID) {
    if (!tool) return;
    int ends[2];
    if (platform::closeOnExecPipe(ends) != 0) {
        HelperPerms::log("tccutil failed: " + Spawn::Failure(errno).reason());
        return;
    }
    std::shared_ptr<SpawnedProcess> process;
    try {
        // Output and errors into one pipe, read after the tool ends.
        process = Spawn::start(*tool, {"reset", service, bundleID}, processEnvironment(), ends[1], ends[1], false);
    } catch (const Spawn::Failure& failure) {
        ::close(ends[0]);
        ::close(ends[1]);
        HelperPerms::log("tccutil failed: " + failure.reason());
        return;
    }
    ::close(ends[1]);
    std::string output;
    char chunk[4096];
    for (;;) {
        ssize_t n = ::read(ends[0], chunk, sizeof chunk);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        output.append(chunk, static_cast<std::size_t>(n));
    }
    ::close(ends[0]);
    while (!process->wait(3600)) {
    }
    std::string text = text::trimmed(text::repairedUtf8(output));
    std::string line = "tccutil reset " + service + " " + bundleID + ": exit " + std::to_string(process->exitCode());
    if (!text.empty()) line += " (" + text + ")";
    HelperPerms::log(line);
}

void registerApp(const std::optional<std::string>& helperApp) {
    if (!helperApp) return;
    int status = platform::registerApplication(*helperApp);
    if (status != 0) HelperPerms::log("LSRegisterURL failed: " + std::to_string(status));
}

// A scheme ("x-apple.systempreferences:", "file:", "https:") and no white space or controls.
bool looksLikeURL(const std::string& text) {
    auto colon = text.find(':');
    if (colon == std::string::npos || colon == 0) return false;
    auto isAlpha = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
    if (!isAlpha(text[0])) return false;
    for (std::size_t i = 1; i < colon; ++i) {
        char c = text[i];
        if (!isAlpha(c) && !(c >= '0' && c <= '9') && c != '+' && c != '-' && c != '.') return false;
    }
    for (char c : text)
        if (static_cast<unsigned char>(c) <= 0x20 || c == 0x7f) return false;
    return true;
}

}  // namespace

std::shared_ptr<HelperPerms> HelperPerms::create(MainQueue& mainQueue, platform::DefaultsStore& store, Setup setup) {
    return std::shared_ptr<HelperPerms>(new HelperPerms(mainQueue, store, std::move(setup)));
}

HelperPerms::HelperPerms(MainQueue& mainQueue, platform::DefaultsStore& store, Setup setup)
    : queue_(std::make_unique<platform::SerialQueue>("velmora.perms")),
      mainQueue_(mainQueue),
      store_(store),
      openURL_(std::move(setup.openURL)),
      resetTool_(std::move(setup.resetTool)) {
    helperApp_ = platform::helperAppPath(setup.bundleRoot);
    helperBinary_ = platform::serverExecutable(helperApp_);
}

HelperPerms::~HelperPerms() = default;  // the queue finishes what was queued; that work holds no strong reference

bool HelperPerms::inWaylandSession() const {
    return lastCause_ && lastCause_->word == Contract::Probe::Cause::wayland;
}

bool HelperPerms::grantedBefore() const { return store_.boolean(Key::helperPermsGrantedOnce); }

void HelperPerms::probe(const std::string& mode, Completion completion) {
    if (platform::waylandSession()) {
        // XWayland would answer "screen=0" every time: say why once, and ask nobody.
        if (!std::exchange(waylandLogged_, true)) log("permission " + mode + ": this is a Wayland session");
        lastProbeFailed_ = false;
        last_ = PermStatus{false, false};
        lastCause_ = ProbeCause{std::string(Contract::Probe::Cause::wayland), ""};
        mainQueue_.post([completion = std::move(completion), status = last_] {
            if (completion) completion(status);
        });
        return;
    }
    if (!helperBinary_ || !Spawn::isExecutableFile(*helperBinary_)) {
        lastProbeFailed_ = true;
        mainQueue_.post([completion = std::move(completion)] {
            if (completion) completion(std::nullopt);
        });
        return;
    }
    std::weak_ptr<HelperPerms> weak = weak_from_this();
    // The completion moves on to the main queue: whatever it holds is never released on the queue's
    // own thread (releasing this service there would make its queue join itself).
    queue_->async([weak, mode, binary = *helperBinary_, mainQueue = mainQueue_.link(),
                   completion = std::move(completion)]() mutable {
        LaunchPlan plan = permProbeLaunch(mode, processEnvironment());
        // The system may put up its own prompts while a request probe waits.
        double timeout = mode == "request" ? 20.0 : 10.0;
        auto output = Spawn::output(binary, plan.arguments, plan.environment, timeout);
        std::optional<PermStatus> status = output ? parsePermProbe(*output) : std::nullopt;
        std::optional<ProbeCause> cause = output ? parseProbeCause(*output) : std::nullopt;
        mainQueue->post([weak, mode, status, cause, completion = std::move(completion)] {
            auto self = weak.lock();
            if (!self) return;
            self->lastProbeFailed_ = !status;
            if (status) {
                self->last_ = status;
                self->lastCause_ = status->allOK() ? std::nullopt : cause;
                if (status->allOK()) self->store_.set(Key::helperPermsGrantedOnce, true);
                log("permission " + mode + ": screen=" + (status->screen ? "1" : "0") +
                    " input=" + (status->input ? "1" : "0"));
            } else {
                log("permission " + mode + ": no answer from the server");
            }
            if (completion) completion(status);
        });
    });
}

void HelperPerms::repair(const PermRepairPlan& plan, Completion completion) {
    std::weak_ptr<HelperPerms> weak = weak_from_this();
    queue_->async([weak, plan, tool = resetTool_, app = helperApp_, mainQueue = mainQueue_.link(),
                   completion = std::move(completion)]() mutable {
        if (!weak.expired()) registerApp(app);
        for (const auto& service : plan.resetServices) resetEntry(tool, service, PermConst::helperBundleID);
        mainQueue->post([weak, plan, completion = std::move(completion)] {
            auto self = weak.lock();
            if (!self) return;
            if (plan.request) self->probe("request", completion);
            else if (completion) completion(self->last_);
        });
    });
}

void HelperPerms::tccReset(const std::string& service, const std::string& bundleID) {
    resetEntry(resetTool_, service, bundleID);
}

void HelperPerms::registerHelper() { registerApp(helperApp_); }

void HelperPerms::cleanUpLegacyEntriesOnce() {
    if (store_.boolean(Key::legacyAppPermsReset)) return;
    // Marked before the work, so it is tried at most once even if it fails or we quit meanwhile.
    store_.set(Key::legacyAppPermsReset, true);
    queue_->async([tool = resetTool_] {
        resetEntry(tool, PermConst::screenService, PermConst::legacyBundleID);
        resetEntry(tool, PermConst::inputService, PermConst::legacyBundleID);
    });
}

void HelperPerms::open(const std::string& url) {
    if (!looksLikeURL(url) || !openURL_) return;
    openURL_(url);
}


}  // namespace velmora
