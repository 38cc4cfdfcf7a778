// Counts how often the application meets named events ("termination.crash", ...): each event
// goes to the journal and into a counts file in the user's state folder, and observers hear of
// it through VKUsageLoggerDidLogUsageNotification.
#pragma once

#include "Foundation/VKExport.h"

#include <QHash>
#include <QString>

#include <memory>

// Posted after each logged event, on the logging thread, with the sender the shared logger and
// the key under "key" in the user information. Its value is its own name.
VK_EXPORT extern const QString VKUsageLoggerDidLogUsageNotification;
// The user-defaults key of the user identifier ("VKUsageLoggerUserIdentifier").
VK_EXPORT extern const QString VKUsageLoggerUserIdentifierKey;

class VK_EXPORT VKUsageLogger
{
public:
    // The one instance, made on first use and kept for the process.
    static VKUsageLogger &sharedUsageLogger();

    // Records one occurrence of `key`. Thread-safe; a counts file that cannot be written is
    // logged and the event still reaches the journal and the observers.
    void logUsageForKey(const QString &key);

    // A random identifier made on first use and kept in the user defaults, so that reports of
    // one user can be told apart without naming the user.
    QString userIdentifier();

    // "<state folder>/Vessan/Usage/<application identifier>.json": a JSON object of key to
    // count. The state folder follows VKSearchPaths (so tests can move it).
    static QString countsFilePath();
    // The counts as the file holds them now (empty when there is none).
    static QHash<QString, qint64> counts();

    VKUsageLogger(const VKUsageLogger &) = delete;
    VKUsageLogger &operator=(const VKUsageLogger &) = delete;

private:
    VKUsageLogger();
    ~VKUsageLogger();
    struct Private;
    std::unique_ptr<Private> d;
};
