#include "qt/qt_main_queue.h"

#include <QMetaObject>
#include <QTimer>

#include <chrono>
#include <cmath>

namespace velmora {

QtMainQueue::QtMainQueue() : context_(std::make_unique<QObject>()) {}

// Background work that finishes later must find the link closed before the context object goes.
QtMainQueue::~QtMainQueue() { close(); }

void QtMainQueue::post(std::function<void()> work) {
    // Safe from any thread: the call is queued to the context object's (the main) thread.
    QMetaObject::invokeMethod(context_.get(), std::move(work), Qt::QueuedConnection);
}

TimerHandle QtMainQueue::postAfter(double seconds, std::function<void()> work) {
    auto timer = std::make_shared<Timer>();
    int milliseconds = seconds > 0 ? static_cast<int>(std::lround(seconds * 1000.0)) : 0;
    QTimer::singleShot(milliseconds, Qt::PreciseTimer, context_.get(), [timer, work = std::move(work)] {
        if (timer->claimFire()) work();
    });
    return timer;
}

double QtMainQueue::now() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace velmora
