#include "Files/VKFileSequenceExistence.h"

#include "Files/VKFileSequence.h"
#include "Foundation/VKFileSystem.h"
#include "Foundation/VKPathString.h"

#include <QSet>

#include <optional>

namespace {

enum class Question { All, Any, Count };

// The names in the folder of `identifier`, or nothing when it does not exist or cannot be
// listed.
std::optional<QSet<QString>> folderNames(const QString &identifier, bool *folderExists,
                                         VKError *error)
{
    const QString folder = VKPathString::deletingLastPathComponent(identifier);
    *folderExists = VKFileSystem::fileExistsAtPath(folder);
    if (!*folderExists)
        return std::nullopt;
    const std::optional<QStringList> names = VKFileSystem::contentsOfDirectoryAtPath(folder, error);
    if (!names)
        return std::nullopt;
    return QSet<QString>(names->begin(), names->end());
}

// Whether `name` is the last path component of a member: name prefix, the frame number padded
// exactly as members are written, postfix.
bool isMemberName(const VKFileSequence &sequence, QStringView namePrefix, QStringView name)
{
    const QString postfix = sequence.postfix();
    if (name.size() <= namePrefix.size() + postfix.size() || !name.startsWith(namePrefix)
        || !name.endsWith(postfix))
        return false;
    const QStringView digits =
        name.sliced(namePrefix.size(), name.size() - namePrefix.size() - postfix.size());
    quint64 frame = 0;
    for (QChar c : digits) {
        if (c < u'0' || c > u'9')
            return false;
        const unsigned digit = c.unicode() - u'0';
        if (frame > (~quint64(0) - digit) / 10)
            return false; // more than any frame number
        frame = frame * 10 + digit;
    }
    if (frame < sequence.startFrame() || frame > sequence.endFrameInclusive())
        return false;
    return QString::number(frame).rightJustified(qsizetype(sequence.padding()), u'0') == digits;
}

// How many members are among `names`, stopping as soon as `question` is answered (at the first
// missing member for All, at the first found one for Any).
quint64 membersFound(const VKFileSequence *sequence, const QSet<QString> &names, Question question)
{
    if (!sequence)
        return 0;
    const quint64 count = sequence->numberOfFiles();
    quint64 found = 0;
    // When the folder holds fewer names than the sequence has members, go through the names:
    // a typo such as clip_1-1000000000####.dpx must not turn into a billion look-ups. Member
    // names are distinct as long as the postfix stays inside the last path component.
    if (count > quint64(names.size()) && !sequence->postfix().contains(u'/')) {
        const QString prefix = sequence->prefix();
        const QStringView namePrefix = QStringView(prefix).sliced(prefix.lastIndexOf(u'/') + 1);
        for (const QString &name : names) {
            if (isMemberName(*sequence, namePrefix, name)) {
                ++found;
                if (question == Question::Any)
                    break;
            }
        }
        return found;
    }
    for (quint64 index = 0; index < count; ++index) {
        const QString path = sequence->filePathForRelativeFrameNumber(index);
        if (names.contains(VKPathString::lastPathComponent(path))) {
            ++found;
            if (question == Question::Any)
                break;
        } else if (question == Question::All) {
            break;
        }
    }
    return found;
}

} // namespace

QString VKFileSequencePresence::stateName() const
{
    switch (state) {
    case Complete:
        return QStringLiteral("complete");
    case Partial:
        return QStringLiteral("partial");
    case Missing:
        break;
    }
    return QStringLiteral("missing");
}

bool VKFileSequenceExistence::completeFileSequenceExistsWithIdentifier(const QString &identifier)
{
    bool folderExists = false;
    const std::optional<QSet<QString>> names = folderNames(identifier, &folderExists, nullptr);
    if (!names)
        return false;
    const auto sequence = VKFileSequence::fileSequenceWithIdentifier(identifier);
    const quint64 count = sequence ? sequence->numberOfFiles() : 0;
    return membersFound(sequence.get(), *names, Question::All) == count;
}

bool VKFileSequenceExistence::fileSequencePartExistsWithIdentifier(const QString &identifier)
{
    bool folderExists = false;
    const std::optional<QSet<QString>> names = folderNames(identifier, &folderExists, nullptr);
    if (!names)
        return false;
    const auto sequence = VKFileSequence::fileSequenceWithIdentifier(identifier);
    return membersFound(sequence.get(), *names, Question::Any) > 0;
}

std::optional<VKFileSequencePresence>
VKFileSequenceExistence::presenceOfFileSequenceWithIdentifier(const QString &identifier,
                                                              VKError *error)
{
    const auto sequence = VKFileSequence::fileSequenceWithIdentifier(identifier);
    if (!sequence) {
        VKError::fill(error, VKError::errorWithDescription(
                                 VQErrorDomainVessanUtilities, 1,
                                 QStringLiteral("“%1” is not a file sequence identifier.")
                                     .arg(identifier)));
        return std::nullopt;
    }
    VKFileSequencePresence presence;
    presence.numberOfFiles = sequence->numberOfFiles();
    bool folderExists = false;
    const std::optional<QSet<QString>> names = folderNames(identifier, &folderExists, error);
    if (!names) {
        if (folderExists)
            return std::nullopt;
        return presence;
    }
    presence.existingFiles = membersFound(sequence.get(), *names, Question::Count);
    if (presence.existingFiles == presence.numberOfFiles)
        presence.state = VKFileSequencePresence::Complete;
    else if (presence.existingFiles > 0)
        presence.state = VKFileSequencePresence::Partial;
    return presence;
}
