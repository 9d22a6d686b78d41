#pragma once
// The permissions window: draws what PermissionsController says and forwards its four buttons and
// the close box. Built once, on the first showing; closing only hides it.

#include "app/app_view.h"
#include "core/main_queue.h"
#include "permissions/helper_perms.h"
#include "permissions/permissions_controller.h"

#include <QLabel>
#include <QPushButton>
#include <QWidget>

#include <functional>
#include <memory>

namespace velmora {

class PermissionsWindow final : public QWidget, public PermissionsWindowView {
public:
    static constexpr int contentWidth = 540;
    static constexpr int contentHeight = 330;

    explicit PermissionsWindow(PermissionsController& controller);

    void render(const PermissionsModel& model) override;
    void present() override;
    void orderOut() override;
    bool onScreen() const override;

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    PermissionsController& controller_;
    QLabel* screenStatus_ = nullptr;
    QLabel* inputStatus_ = nullptr;
    QPushButton* screenButton_ = nullptr;
    QPushButton* inputButton_ = nullptr;
    QLabel* summary_ = nullptr;
    QPushButton* startButton_ = nullptr;
    QPushButton* repairButton_ = nullptr;
};

// What TrayView::permissionsWindow runs: the controller and its window are made on first use and
// kept for the application's lifetime.
std::function<bool(const PermissionsRequest&)> permissionsWindowHook(std::shared_ptr<MainQueue> mainQueue,
                                                                     std::shared_ptr<HelperPerms> perms);

}  // namespace velmora
