// Finds the application's action targets at launch and links them into the command chain right
// after the application's responder, so that commands no window handles reach them.
//
// Make one dispatcher before the application finishes launching and keep it as long as the
// application (for instance as a member of the main window's owner); it listens for
// VKApplicationDidFinishLaunchingNotification, which VKApplicationLifecycle posts:
//
//     QApplication app(argc, argv);
//     VKActionDispatch dispatch;
//     VKApplicationLifecycle::attachToApplication();
//     ...
//     return app.exec();
//
// At launch it makes one object of every registered class whose name begins with
// "VDActionTarget" or "VHActionTarget" and that derives from VKActionTarget (in the order of
// their names), and the chain becomes: application, dispatcher, targets. Main thread only.
#pragma once

#include "Application/VKActionTarget.h"
#include "Application/VKResponder.h"
#include "Foundation/VKExport.h"

#include <QList>

#include <memory>

class VKNotification;

class VK_EXPORT VKActionDispatch : public VKResponder
{
    Q_OBJECT

public:
    VKActionDispatch();
    ~VKActionDispatch() override;

    // The targets in discovery order.
    QList<std::shared_ptr<VKActionTarget>> allResponders() const;

    bool acceptsFirstResponder() const override;
    bool becomeFirstResponder() override;

    // Discovers and makes the targets, links them, and becomes the application responder's
    // next responder. Called for the launch notification; another call starts afresh.
    void applicationDidFinishLaunching(const VKNotification &notification);
    // Links the dispatcher to the first target and each target to the following one; the last
    // target's next responder is left as it is. With no targets the dispatcher's next
    // responder becomes null.
    void updateResponders();

protected:
    // For tests and hosts that assemble the targets themselves.
    void setAllResponders(const QList<std::shared_ptr<VKActionTarget>> &responders);

private:
    struct Private;
    std::unique_ptr<Private> d;
};
