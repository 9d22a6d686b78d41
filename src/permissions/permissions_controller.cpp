#include "permissions/permissions_controller.h"

#include "permissions/perm_repair_plan.h"
#include "platform/words.h"

namespace velmora {

namespace {

namespace words = platform::words;

PermissionsLine statusLine(const std::optional<PermStatus>& status, bool PermStatus::*which, platform::Column column) {
    if (!status) return {"\u2026", PermColour::secondaryLabel};
    if ((*status).*which) return {platform::say(words::allowed, column), PermColour::green};
    return {platform::say(words::notAllowed, column), PermColour::red};
}

}  // namespace

std::string permSummary(const std::optional<PermStatus>& status, bool forgotten, platform::Column column) {
    if (!status) return "Checking with Velmora Server\u2026";
    if (status->allOK()) return platform::say(words::everythingAllowed, column);
    std::string joined;
    if (!status->screen) joined = "\"Velmora\" under Screen Recording";
    if (!status->input) {
        if (!joined.empty()) joined += " and ";
        joined += "\"Velmora Server\" under Accessibility";
    }
    if (forgotten)
        return "macOS forgot the permissions after Velmora was updated.  Switch on " + joined +
               " again; this window updates by itself.";
    return "Switch on " + joined + " in the list that opens; this window updates by itself.";
}

std::shared_ptr<PermissionsController> PermissionsController::create(MainQueue& mainQueue,
                                                                     std::shared_ptr<HelperPerms> perms,
                                                                     WindowFactory factory, platform::Column column) {
    return std::shared_ptr<PermissionsController>(
        new PermissionsController(mainQueue, std::move(perms), std::move(factory), column));
}

PermissionsController::PermissionsController(MainQueue& mainQueue, std::shared_ptr<HelperPerms> perms,
                                             WindowFactory factory, platform::Column column)
    : mainQueue_(mainQueue), perms_(std::move(perms)), factory_(std::move(factory)), column_(column) {}

void PermissionsController::openPane(const char* url) {
    if (panes()) perms_->open(url);
}

PermissionsController::~PermissionsController() {
    if (timer_) timer_->cancel();
}

PermissionsModel PermissionsController::model() const {
    PermissionsModel model;
    model.screenStatus = statusLine(status_, &PermStatus::screen, column_);
    model.inputStatus = statusLine(status_, &PermStatus::input, column_);
    model.screenButtonEnabled = !(status_ && status_->screen);
    model.inputButtonEnabled = !(status_ && status_->input);
    model.startButtonEnabled = status_ && status_->allOK();
    model.repairButtonEnabled = !busy_ && !(status_ && status_->allOK());
    model.paneButtonsShown = panes();
    if (busy_)
        model.summary = {platform::say(words::repairing, column_), PermColour::label};
    else if (perms_->lastProbeFailed() && !status_)
        model.summary = {platform::say(words::notAsked, column_), PermColour::red};
    else if (panes() || !status_ || status_->allOK())
        model.summary = {permSummary(status_, forgotten_, column_), PermColour::label};
    else  // nothing to switch on: say why it does not work
        model.summary = {missingPermissionText(status_, perms_->lastCause()), PermColour::label};
    return model;
}

void PermissionsController::render(bool fresh) {
    if (!window_) return;
    window_->render(model());
    if (fresh && status_ && status_->allOK() && autoContinue_) {
        // At most once per showing.
        autoContinue_ = false;
        auto ready = std::move(onReady_);
        onReady_ = nullptr;
        close();
        if (ready) ready();
    }
}

void PermissionsController::show(bool autoContinue, bool repair, std::function<void()> onReady) {
    autoContinue_ = autoContinue;
    onReady_ = std::move(onReady);
    if (!window_) window_ = factory_(*this);
    openedInputPane_ = false;
    status_ = perms_->last();
    render(false);
    window_->present();
    schedulePoll();

    std::weak_ptr<PermissionsController> weak = weak_from_this();
    perms_->check([weak, repair](std::optional<PermStatus> answer) {
        auto self = weak.lock();
        if (!self) return;
        self->status_ = answer;
        self->render();
        if (repair && answer && !answer->allOK()) self->runRepair(*answer);
    });
}

void PermissionsController::close() {
    stopPoll();
    if (window_) window_->orderOut();
}

void PermissionsController::stopPoll() {
    ++pollGeneration_;
    if (timer_) timer_->cancel();
    timer_.reset();
}

void PermissionsController::schedulePoll() {
    stopPoll();
    armPoll(pollGeneration_);
}

void PermissionsController::armPoll(std::uint64_t generation) {
    std::weak_ptr<PermissionsController> weak = weak_from_this();
    timer_ = mainQueue_.postAfter(pollSeconds, [weak, generation] {
        auto self = weak.lock();
        if (!self || generation != self->pollGeneration_) return;
        // Repeating: the next tick is armed first, so a poll that ends the showing cancels it.
        self->armPoll(generation);
        self->poll();
    });
}

void PermissionsController::poll() {
    if (busy_ || checking_ || !isVisible()) return;
    checking_ = true;
    std::weak_ptr<PermissionsController> weak = weak_from_this();
    perms_->check([weak](std::optional<PermStatus> answer) {
        auto self = weak.lock();
        if (!self) return;
        self->checking_ = false;
        std::optional<PermStatus> before = self->status_;
        if (answer) self->status_ = answer;  // no answer keeps what was known
        self->render();
        // Screen Recording just switched on with Accessibility still off: lead on to the second list.
        const auto& now = self->status_;
        if (before && !before->screen && now && now->screen && !now->input && !self->openedInputPane_) {
            self->openedInputPane_ = true;
            self->openPane(HelperPerms::inputURL);
        }
    });
}

void PermissionsController::runRepair(const PermStatus& status) {
    PermRepairPlan plan = permRepairPlan(status, perms_->grantedBefore());
    if (!plan.request || busy_) return;
    forgotten_ = plan.forgotten;
    busy_ = true;
    render();
    std::weak_ptr<PermissionsController> weak = weak_from_this();
    perms_->repair(plan, [weak](std::optional<PermStatus> answer) {
        auto self = weak.lock();
        if (!self) return;
        self->busy_ = false;
        if (answer) self->status_ = answer;
        self->render();
        const auto& now = self->status_;
        if (!now) return;
        if (!now->screen) {
            self->openPane(HelperPerms::screenURL);
        } else if (!now->input) {
            self->openedInputPane_ = true;
            self->openPane(HelperPerms::inputURL);
        }
    });
}

void PermissionsController::openScreen() { openPane(HelperPerms::screenURL); }

void PermissionsController::openInput() {
    openedInputPane_ = true;
    openPane(HelperPerms::inputURL);
}

void PermissionsController::repairAgain() {
    if (status_) {
        runRepair(*status_);
        return;
    }
    std::weak_ptr<PermissionsController> weak = weak_from_this();
    perms_->check([weak](std::optional<PermStatus> answer) {
        auto self = weak.lock();
        if (self && answer) self->runRepair(*answer);
    });
}

void PermissionsController::startNow() {
    auto ready = std::move(onReady_);
    onReady_ = nullptr;
    autoContinue_ = false;
    close();
    if (ready) ready();
}

void PermissionsController::windowWillClose() {
    stopPoll();
    autoContinue_ = false;
    onReady_ = nullptr;
}

}  // namespace velmora
