// Launch and termination notifications of a Qt application: "will finish launching", "did
// finish launching" and "will terminate", posted through the default notification centre.
#pragma once

#include "Foundation/VKExport.h"

#include <QString>

// The notification names; each holds its own name.
VK_EXPORT extern const QString VKApplicationWillFinishLaunchingNotification;
VK_EXPORT extern const QString VKApplicationDidFinishLaunchingNotification;
VK_EXPORT extern const QString VKApplicationWillTerminateNotification;

class VK_EXPORT VKApplicationLifecycle
{
public:
    // Attaches to the application object (QCoreApplication or a subclass); call it on the main
    // thread once the object exists. Posts "will finish launching" before it returns, "did
    // finish launching" on the first turn of the application's event loop and "will terminate"
    // when the application is about to quit. Each is posted once per application object; a
    // second call for the same object does nothing. False when there is no application object.
    static bool attachToApplication();

    // Whether "did finish launching" was posted for the current application object.
    static bool hasFinishedLaunching();

    // Posts "will terminate" now unless it was posted already, for hosts that end without
    // leaving the event loop (a tool that calls exit()). Does nothing when not attached.
    static void applicationWillTerminate();

private:
    VKApplicationLifecycle() = delete;
};
