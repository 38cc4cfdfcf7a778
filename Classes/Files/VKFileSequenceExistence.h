// Whether the members of an identified file sequence exist on disk: all of them, any of them,
// or how many. The members are matched by name against one listing of the sequence's folder,
// never by one look-up per member, so that huge sequences stay cheap to check.
#pragma once

#include "Foundation/VKError.h"
#include "Foundation/VKExport.h"

#include <QString>

#include <optional>

// What one listing of a sequence's folder showed.
struct VK_EXPORT VKFileSequencePresence
{
    enum State { Missing, Partial, Complete };

    State state = Missing;
    quint64 existingFiles = 0; // members found in the folder
    quint64 numberOfFiles = 0; // members the identifier names

    // "complete", "partial" or "missing".
    QString stateName() const;
};

class VK_EXPORT VKFileSequenceExistence
{
public:
    // Whether every member of the sequence named by `identifier` exists. False when the folder
    // does not exist or cannot be listed. An identifier that does not parse names no members
    // and so counts as complete in an existing folder.
    static bool completeFileSequenceExistsWithIdentifier(const QString &identifier);
    // Whether at least one member exists. False for a missing or unreadable folder and for an
    // identifier that does not parse.
    static bool fileSequencePartExistsWithIdentifier(const QString &identifier);

    // How many members exist: complete, partial or missing (a folder that does not exist counts
    // as missing). Nothing, with `error` filled, when the identifier does not parse or the
    // folder exists but cannot be listed.
    static std::optional<VKFileSequencePresence>
    presenceOfFileSequenceWithIdentifier(const QString &identifier, VKError *error = nullptr);
};
