#include "qt/signal_watch.h"

#include "platform/descriptors.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace velmora {

namespace {

int signalPipe[2] = {-1, -1};
constexpr int watchedSignals[] = {SIGTERM, SIGINT, SIGHUP};

void handleSignal(int) {
    int saved = errno;
    char byte = 1;
    [[maybe_unused]] auto ignored = ::write(signalPipe[1], &byte, 1);
    errno = saved;
}

}  // namespace

std::unique_ptr<SignalWatch> SignalWatch::install(std::function<void()> onSignal) {
    if (signalPipe[0] < 0 && platform::closeOnExecPipe(signalPipe, true) != 0) return nullptr;
    std::unique_ptr<SignalWatch> watch(new SignalWatch(std::move(onSignal)));
    struct sigaction action{};
    action.sa_handler = handleSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (int signal : watchedSignals) ::sigaction(signal, &action, nullptr);
    return watch;
}

SignalWatch::SignalWatch(std::function<void()> onSignal)
    : onSignal_(std::move(onSignal)),
      notifier_(std::make_unique<QSocketNotifier>(signalPipe[0], QSocketNotifier::Read)) {
    QObject::connect(notifier_.get(), &QSocketNotifier::activated, [this] {
        char bytes[16];
        while (::read(signalPipe[0], bytes, sizeof bytes) > 0) {
        }
        notifier_->setEnabled(false);
        if (onSignal_) onSignal_();
    });
}

SignalWatch::~SignalWatch() {
    for (int signal : watchedSignals) ::signal(signal, SIG_DFL);
}

}  // namespace velmora
