#include "VHActionTargetReports.h"

#include "Diagnostics/VKBugReporter.h"
#include "Diagnostics/VKCrashReporter.h"
#include "Foundation/VKClassRegistry.h"

namespace {

struct Reporters
{
    std::shared_ptr<VKCrashReporter> crash;
    std::shared_ptr<VKBugReporter> bug;
};

Reporters &reporters()
{
    static Reporters shared;
    return shared;
}

const QString kShowBugReporter = QStringLiteral("showBugReporter");
const QString kShowCrashReporter = QStringLiteral("showCrashReporter");

} // namespace

VHActionTargetReports::VHActionTargetReports()
{
    setSelectors({kShowBugReporter, kShowCrashReporter});
    setValid(reporters().bug != nullptr);
}

void VHActionTargetReports::setReporters(std::shared_ptr<VKCrashReporter> crashReporter,
                                         std::shared_ptr<VKBugReporter> bugReporter)
{
    reporters() = {std::move(crashReporter), std::move(bugReporter)};
}

bool VHActionTargetReports::respondsToSelector(const QString &command) const
{
    if (command == kShowCrashReporter && !reporters().crash)
        return false;
    return VKActionTarget::respondsToSelector(command);
}

void VHActionTargetReports::showBugReporter(QObject *sender)
{
    if (reporters().bug)
        reporters().bug->showReportWindow(sender);
}

void VHActionTargetReports::showCrashReporter(QObject *sender)
{
    if (reporters().crash)
        reporters().crash->showReportWindow(sender);
}

VK_REGISTER_CLASS(VHActionTargetReports, VKActionTarget)
