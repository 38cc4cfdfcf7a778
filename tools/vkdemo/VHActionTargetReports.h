// vkdemo's Help menu commands: "showBugReporter" opens the bug reporter and "showCrashReporter"
// the crash reporter. The action dispatch makes the target at launch; main() hands it the
// reporters before that.
#pragma once

#include "Application/VKActionTarget.h"

#include <memory>

class VKBugReporter;
class VKCrashReporter;

class VHActionTargetReports : public VKActionTarget
{
    Q_OBJECT

public:
    VHActionTargetReports();

    // The reporters every target made later works with. Valid only with a bug reporter; the
    // crash reporter may be null (its window description could not be loaded), and then
    // "showCrashReporter" is not answered, so its menu item stays disabled.
    static void setReporters(std::shared_ptr<VKCrashReporter> crashReporter,
                             std::shared_ptr<VKBugReporter> bugReporter);

    bool respondsToSelector(const QString &command) const override;

    Q_INVOKABLE void showBugReporter(QObject *sender);
    Q_INVOKABLE void showCrashReporter(QObject *sender);
};
