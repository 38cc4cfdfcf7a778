// Feeds arbitrary identifiers to parseIdentifier and arbitrary path lists to
// sequencesWithFiles. An identifier that parses must print back to one that parses to the same
// fields; every path must land in exactly one run, runs in sorted order, and every run must be
// consecutive frames with one prefix and one postfix.
#include "Files/VKFileSequence.h"
#include "Foundation/VKLogger.h"
#include "Foundation/VKNumericStringCompare.h"

#include <QStringList>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>

namespace {

class NullSink : public VKLogSink
{
public:
    void write(const VKLogEntry &) override {}
};

void check(bool condition)
{
    if (!condition)
        std::abort();
}

// Even-length input is also read as raw UTF-16, so that surrogates and digits of every script
// are reached; otherwise as UTF-8.
QString textOf(const std::uint8_t *data, std::size_t size, bool utf16)
{
    if (utf16)
        return QString(reinterpret_cast<const QChar *>(data), qsizetype(size / 2));
    return QString::fromUtf8(reinterpret_cast<const char *>(data), qsizetype(size));
}

void checkIdentifier(const QString &text)
{
    VKFileSequence sequence;
    if (!sequence.parseIdentifier(text))
        return;
    check(sequence.startFrame() <= sequence.endFrameInclusive());
    check(sequence.padding() > 0);
    if (sequence.startFrame() == quint64(VKFileSequence::notFound)
        || sequence.endFrameInclusive() == quint64(VKFileSequence::notFound))
        return;
    VKFileSequence again;
    check(again.parseIdentifier(sequence.identifier()));
    check(again.prefix() == sequence.prefix());
    check(again.postfix() == sequence.postfix());
    check(again.padding() == sequence.padding());
    check(again.startFrame() == sequence.startFrame());
    check(again.endFrameInclusive() == sequence.endFrameInclusive());
}

void checkGrouping(const QString &text)
{
    const QStringList paths = text.split(u'\n');
    if (paths.size() > 4000)
        return;
    const QList<QStringList> runs = VKFileSequence::sequencesWithFiles(paths);
    QStringList flattened;
    for (const QStringList &run : runs) {
        check(!run.isEmpty());
        flattened += run;
        for (qsizetype i = 1; i < run.size(); ++i) {
            check(VKFileSequence::frameNumberForFile(run[i])
                  == VKFileSequence::frameNumberForFile(run[i - 1]) + 1);
            check(VKFileSequence::prefixStringForFile(run[i])
                  == VKFileSequence::prefixStringForFile(run[0]));
            check(VKFileSequence::postfixStringForFile(run[i])
                  == VKFileSequence::postfixStringForFile(run[0]));
        }
        if (run.size() > 1)
            check(VKFileSequence::frameNumberForFile(run[0]) != VKFileSequence::notFound);
    }
    QStringList expected = paths;
    std::sort(expected.begin(), expected.end(), VKNumericStringCompare::lessThan);
    check(flattened == expected);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const bool quiet = [] {
        VKLogger::shared().setSinks({std::make_shared<NullSink>()});
        return true;
    }();
    (void)quiet;
    if (size == 0 || size > 64 * 1024)
        return 0;
    const bool utf16 = data[0] & 1;
    const QString text = textOf(data + 1, size - 1, utf16);
    checkIdentifier(text);
    checkGrouping(text);
    return 0;
}
