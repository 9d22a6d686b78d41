#pragma once
// The permissions window's logic: which permission the server still lacks, the repair it starts by
// itself, the System Settings panes it opens, the 2-second status poll while the window is open,
// and continuing (starting the server) once everything is allowed. It reaches the window only
// through PermissionsWindowView, so the Qt window draws the model and tests drive it on a
// ManualQueue. Main thread only; its timers and completions hold it weakly.

#include "core/main_queue.h"
#include "permissions/helper_perms.h"
#include "permissions/perm_status.h"
#include "platform/words.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace velmora {

// The window's texts that are the same everywhere; the others are this platform's words
// (platform::words::permissions..., screen..., input...).
namespace PermissionsText {
inline constexpr const char* openSettings = "Open Settings\u2026";
inline constexpr const char* startServer = "Start Server";
}  // namespace PermissionsText

enum class PermColour { label, secondaryLabel, green, red };

struct PermissionsLine {
    std::string text;
    PermColour colour = PermColour::label;

    bool operator==(const PermissionsLine&) const = default;
};

// What the window shows.
struct PermissionsModel {
    PermissionsLine screenStatus;
    PermissionsLine inputStatus;
    bool screenButtonEnabled = true;
    bool inputButtonEnabled = true;
    bool startButtonEnabled = false;
    bool repairButtonEnabled = true;
    // The "Open Settings…" buttons exist only where the system keeps lists to switch the server on in.
    bool paneButtonsShown = true;
    PermissionsLine summary;

    bool operator==(const PermissionsModel&) const = default;
};

// The text of the summary line for a status (absent: not known yet), where the user switches the
// server on in System Settings' lists.
std::string permSummary(const std::optional<PermStatus>& status, bool forgotten,
                        platform::Column column = platform::column());

// The window as the controller sees it.
class PermissionsWindowView {
public:
    virtual ~PermissionsWindowView() = default;
    virtual void render(const PermissionsModel& model) = 0;
    // Activates the application, centres the window if it is not on screen, brings it to the front.
    virtual void present() = 0;
    // Hides the window; it is kept for the next showing.
    virtual void orderOut() = 0;
    virtual bool onScreen() const = 0;
};

class PermissionsController : public std::enable_shared_from_this<PermissionsController> {
public:
    // Builds the window on the first show; the window calls back the controller's button actions
    // and windowWillClose.
    using WindowFactory = std::function<std::unique_ptr<PermissionsWindowView>(PermissionsController&)>;

    static constexpr double pollSeconds = 2.0;

    // The queue must outlive the controller.
    // `column`: whose words and ways the window follows (this platform's): on a Mac the user switches
    // the server on in System Settings' lists, which the window opens; X11 desktops have no such
    // lists, so the window says why something does not work instead.
    static std::shared_ptr<PermissionsController> create(MainQueue& mainQueue, std::shared_ptr<HelperPerms> perms,
                                                         WindowFactory factory,
                                                         platform::Column column = platform::column());
    PermissionsController(const PermissionsController&) = delete;
    PermissionsController& operator=(const PermissionsController&) = delete;
    ~PermissionsController();

    // Opens (or re-opens) the window and starts checking; `onReady` replaces an earlier one.
    void show(bool autoContinue, bool repair, std::function<void()> onReady);
    // Stops the poll and hides the window.
    void close();
    bool isVisible() const { return window_ && window_->onScreen(); }

    // The buttons.
    void openScreen();
    void openInput();
    void repairAgain();
    void startNow();
    // The user closed the window with its close box: what would have continued is dropped.
    void windowWillClose();

    // What the window shows now.
    PermissionsModel model() const;
    const std::optional<PermStatus>& status() const { return status_; }
    bool busy() const { return busy_; }
    PermissionsWindowView* window() const { return window_.get(); }

private:
    PermissionsController(MainQueue& mainQueue, std::shared_ptr<HelperPerms> perms, WindowFactory factory,
                          platform::Column column);
    bool panes() const { return column_ == platform::Column::mac; }
    void openPane(const char* url);
    // `fresh`: the status was just asked for; only such an answer continues by itself (a status
    // remembered from earlier would close the window before it appears).
    void render(bool fresh = true);
    void schedulePoll();
    void armPoll(std::uint64_t generation);
    void poll();
    void runRepair(const PermStatus& status);
    void stopPoll();

    MainQueue& mainQueue_;
    std::shared_ptr<HelperPerms> perms_;
    WindowFactory factory_;
    const platform::Column column_;
    std::unique_ptr<PermissionsWindowView> window_;
    TimerHandle timer_;
    std::uint64_t pollGeneration_ = 0;  // a tick of an earlier showing's timer does nothing

    bool autoContinue_ = false;
    std::function<void()> onReady_;
    std::optional<PermStatus> status_;
    bool forgotten_ = false;
    bool busy_ = false;
    bool checking_ = false;
    bool openedInputPane_ = false;
};

}  // namespace velmora
