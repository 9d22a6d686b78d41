#pragma once
// The permissions window: draws what PermissionsController says and forwards its four buttons and
// the close box. Built once, on the first showing; closing only hides it.

#include "app/app_view.h"

#include <QLabel>
#include <QPushButton>
#include <QWidget>


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
    QLabel* screenHint_ = nullptr;
    QLabel* inputHint_ = nullptr;
    QLabel* screenStatus_ = nullptr;
    QLabel* inputStatus_ = nullptr;
    QPushButton* screenButton_ = nullptr;
    QPushButton* inputButton_ = nullptr;
    QLabel* summary_ = nullptr;
    QPushButton* startButton_ = nullptr;
    QPushButton* repairButton_ = nullptr;
};

}  // namespace velmora
