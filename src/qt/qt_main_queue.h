#pragma once
// The main queue on Qt's event loop: posted work runs as queued calls on the main thread, timers
// are single-shot QTimers. Works the same under QCoreApplication (--headless) and QApplication.

#include "core/main_queue.h"

#include <QObject>

#include <memory>

namespace velmora {

class QtMainQueue final : public MainQueue {
public:
    // Create on the main thread, after the application object.
    QtMainQueue();
    ~QtMainQueue() override;

    void post(std::function<void()> work) override;
    TimerHandle postAfter(double seconds, std::function<void()> work) override;
    double now() const override;

private:
    // Lives on the main thread: queued calls and timers run in its thread.
    std::unique_ptr<QObject> context_;
};

}  // namespace velmora
