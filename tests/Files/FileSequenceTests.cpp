#include "Files/VKFileSequence.h"

#include "VKTestSupport.h"

#include <QDir>

#include <gtest/gtest.h>

using L = QStringList;
using S = VKFileSequence;

namespace {

constexpr quint64 notFound = 0x7FFFFFFFFFFFFFFFULL;

// "prefix|start|end|padding|postfix" of a sequence, or "none".
QString fields(const std::shared_ptr<S> &s)
{
    return s ? QStringList{s->prefix(), QString::number(s->startFrame()),
                           QString::number(s->endFrameInclusive()), QString::number(s->padding()),
                           s->postfix()}
                   .join(u'|')
             : QStringLiteral("none");
}

} // namespace

TEST(VKFileSequence, PartsOfAFile)
{
    // "frame|prefix|postfix|number|padding"; a null text is written "-".
    const auto parts = [](const QString &path) {
        const auto text = [](const QString &s) { return s.isNull() ? QStringLiteral("-") : s; };
        return QStringList{text(S::frameStringForFile(path)), text(S::prefixStringForFile(path)),
                           text(S::postfixStringForFile(path)),
                           QString::number(S::frameNumberForFile(path)),
                           QString::number(S::paddingForFile(path))}
            .join(u'|');
    };
    const QString none = "-|-|-|" + QString::number(notFound) + "|1";
    // Digits in a folder name do not count; prefix and postfix span the whole path. Frame
    // numbers saturate at 32 bits; the digits stay as written.
    // clang-format off
    const struct { const char16_t *path; QString parts; } cases[] = {
        {u"/V/A001_C002.0001.dpx", "0001|/V/A001_C002.|.dpx|1|4"}, {u"clip7a", "7|clip|a|7|1"},
        {u"clip_0.dpx", "0|clip_|.dpx|0|1"}, {u"clip.dpx", none}, {u"", none},
        {u"/V/reel12/clip.dpx", none}, {u"/V/0042", "0042|/V/||42|4"},
        {u"/V/reel12/clip_0098.dpx", "0098|/V/reel12/clip_|.dpx|98|4"},
        {u"/V/My Shot v2.final.0007.tar.gz", "0007|/V/My Shot v2.final.|.tar.gz|7|4"},
        {u"/V/c_\u0661\u0660.dpx", u"\u0661\u0660|/V/c_|.dpx|10|1"_qs},
        {u"c_2147483647.dpx", "2147483647|c_|.dpx|2147483647|1"},
        {u"c_99999999999.dpx", "99999999999|c_|.dpx|2147483647|1"},
    };
    // clang-format on
    for (const auto &c : cases)
        EXPECT_EQ(parts(QString::fromUtf16(c.path)), c.parts) << QString::fromUtf16(c.path);
}

TEST(VKFileSequence, GroupingIntoRuns)
{
    // The differential suite compares ordinary listings with a reference; these are the
    // answers that must not move.
    // clang-format off
    const struct { const char *name; L files; QList<L> runs; } cases[] = {
        {"postfix case", {"x_001.dpx", "x_002.DPX"}, {{"x_001.dpx"}, {"x_002.DPX"}}},
        {"repeat", {"s_1.dpx", "s_1.dpx", "s_2.dpx"}, {{"s_1.dpx"}, {"s_1.dpx", "s_2.dpx"}}},
        {"equal frames written apart", {"a1.x", "a01.x", "a2.x"}, {{"a01.x"}, {"a1.x", "a2.x"}}},
        {"saturated frames repeat", {"c_2147483648.dpx", "c_2147483647.dpx"},
         {{"c_2147483647.dpx"}, {"c_2147483648.dpx"}}},
        {"no frame number", {"/V/clip.dpx", "/V/clip_1.dpx", "/V/clip_2.dpx", "/V/notes.txt"},
         {{"/V/clip.dpx"}, {"/V/clip_1.dpx", "/V/clip_2.dpx"}, {"/V/notes.txt"}}},
        {"same name twice", {"x", "x"}, {{"x"}, {"x"}}},
        {"all digits", {"/V/0002", "/V/0001", "/V/0003"}, {{"/V/0001", "/V/0002", "/V/0003"}}},
        {"nothing", {}, {}},
    };
    // clang-format on
    for (const auto &c : cases)
        EXPECT_EQ(S::sequencesWithFiles(c.files), c.runs) << c.name;
}

TEST(VKFileSequence, SequencesFromFiles)
{
    // One run or nothing; leading zeros do not keep a frame out of its run.
    // clang-format off
    const struct { L files; const char *fields; } cases[] = {
        {{"/V/c_0012.dpx", "/V/c_0011.dpx", "/V/c_0010.dpx"}, "/V/c_|10|12|4|.dpx"},
        {{"/V/c_0005.dpx"}, "/V/c_|5|5|4|.dpx"},
        {{"c_100.dpx", "c_99.dpx", "c_0098.dpx"}, "c_|98|100|4|.dpx"},
        {{"/V/clip.dpx"}, "/V/clip.dpx|9223372036854775807|9223372036854775807|0|"},
        {{"c_1.dpx", "c_3.dpx"}, "none"}, {{}, "none"},
    };
    // clang-format on
    for (const auto &c : cases)
        EXPECT_EQ(fields(S::fileSequenceWithFiles(c.files)), c.fields) << c.files.join(u' ');
    // A run as given: a numbered first file with an unnumbered last one stands for the list.
    EXPECT_EQ(fields(S::fileSequenceWithSequenceOfFiles({"/V/c_0003.dpx", "/V/c.dpx"})),
              "/V/c_0003.dpx|3|9223372036854775807|0|");
    EXPECT_FALSE(S::fileSequenceWithSequenceOfFiles({}));
    QStringList all;
    for (const auto &s :
         S::fileSequencesWithFiles({"/V/c_0002.dpx", "/V/notes.txt", "/V/c_0001.dpx"}))
        all << s->identifier() + " " + QString::number(s->numberOfFiles());
    EXPECT_EQ(all, (L{"/V/c_1-2####.dpx 2", "/V/notes.txt 1"}));
}

TEST(VKFileSequence, Identifiers)
{
    // clang-format off
    // Fields "none": rejected.
    const struct { const char *identifier; const char *fields; } cases[] = {
        {"/V/clip_1-100####.dpx", "/V/clip_|1|100|4|.dpx"},
        {"/V/c_4294967296-4294967297##.exr", "/V/c_|4294967296|4294967297|2|.exr"},
        {"1-1#", "|1|1|1|"},
        {"My Shot v2.final.9-10####.tar.gz", "My Shot v2.final.|9|10|4|.tar.gz"},
        {"c_1-99999999999999999999#", "c_|1|9223372036854775807|1|"}, // saturates to not-found
        // The last "#" run must be in the last path component; earlier ones are plain text.
        {"/V/take#2/c_7-9##.dpx", "/V/take#2/c_|7|9|2|.dpx"},
        {"/V/a##/c_1-2#.dpx", "/V/a##/c_|1|2|1|.dpx"}, {"dir##/clip_1-2.dpx", "none"},
        {"/V/c_1-2##/notes.txt", "none"},
        {"##/1-2", "none"}, {"clip_100-1##.dpx", "none"}, {"clip_1-100.dpx", "none"},
        {"clip_1_100##.dpx", "none"}, {"#", "none"}, {"1#", "none"}, {"-1#", "none"},
        {"a-1#", "none"}, {"1--2#", "none"},
    };
    // clang-format on
    VKLogCapture log;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.identifier);
        const auto parsed = S::fileSequenceWithIdentifier(c.identifier);
        EXPECT_EQ(fields(parsed), c.fields);
        if (parsed && parsed->endFrameInclusive() != notFound) {
            EXPECT_EQ(parsed->identifier(), c.identifier);
        }
        // Parsing into a sequence answers the same; a failed parse changes nothing.
        const auto kept = S::fileSequenceWithIdentifier("keep5-6#");
        EXPECT_EQ(kept->parseIdentifier(c.identifier), bool(parsed));
        EXPECT_EQ(fields(kept), parsed ? fields(parsed) : QStringLiteral("keep|5|6|1|"));
    }
    EXPECT_TRUE(log.entries().isEmpty());
    EXPECT_EQ(S::fileSequenceWithIdentifier("/V/clip_1-100####.dpx")->paddingString(), "####");
    // Without a start frame the identifier is the prefix alone.
    S s;
    EXPECT_EQ(s.identifier(), "0-0");
    s.setPrefix("x");
    s.setStartFrame(notFound);
    EXPECT_EQ(s.identifier(), "x");

    // Null and empty identifiers are logged.
    EXPECT_FALSE(s.parseIdentifier(QString()));
    EXPECT_FALSE(s.parseIdentifier(QStringLiteral("")));
    EXPECT_EQ(log.messages(), (L{"[VKFileSequence parseIdentifier:] was called with nil argument",
                                 "[VKFileSequence parseIdentifier:] was called with zero length "
                                 "argument"}));
    EXPECT_EQ(log.entries().value(0).line(),
              "error VessanUtilities -[VKFileSequence parseIdentifier:] VKFileSequence " +
                  vkFormat("%p", static_cast<const void *>(&s)) + ": " + log.messages().value(0));
}

TEST(VKFileSequence, MembersInAndOutPointsAndTheDeprecatedLookup)
{
    const auto s = S::fileSequenceWithIdentifier("/V/c_10-19##.dpx"); // ten members
    // clang-format off
    const struct { quint64 in, out; const char *identifier; } points[] = {
        {0, 9, "/V/c_10-19##.dpx"}, {2, 4, "/V/c_12-14##.dpx"}, {10, 10, "/V/c_20-20##.dpx"},
        {0, 11, "/V/c_10-19##.dpx"}, {11, 0, "/V/c_10-19##.dpx"}, {~0ULL, 0, "/V/c_10-19##.dpx"}};
    // clang-format on
    for (const auto &p : points)
        EXPECT_EQ(s->identifierWithInPoint(p.in, p.out), p.identifier) << p.in << "-" << p.out;

    const auto wide = S::fileSequenceWithIdentifier("/V/clip_7-12345####.dpx");
    EXPECT_EQ(wide->filenameForAbsoluteFrameNumber(7), "/V/clip_0007.dpx");
    EXPECT_EQ(wide->filenameForAbsoluteFrameNumber(12345), "/V/clip_12345.dpx"); // never cut
    const auto small = S::fileSequenceWithIdentifier("/V/c_8-11###.exr");
    EXPECT_EQ(small->allFilePaths(),
              (L{"/V/c_008.exr", "/V/c_009.exr", "/V/c_010.exr", "/V/c_011.exr"}));
    EXPECT_EQ(small->allFileURLs().value(3), QUrl("file:///V/c_011.exr"));
    EXPECT_EQ(S::fileSequenceWithIdentifier("my c_1-1#.dpx")->allFileURLs(),
              QList<QUrl>{QUrl::fromLocalFile(QDir::current().absoluteFilePath("my c_1.dpx"))});

    // Out of range: nothing, and one line on standard output each.
    const auto five = S::fileSequenceWithIdentifier("/V/c_5-9####.dpx");
    testing::internal::CaptureStdout();
    EXPECT_TRUE(five->filenameForAbsoluteFrameNumber(4).isNull());
    EXPECT_TRUE(five->filenameForAbsoluteFrameNumber(10).isNull());
    EXPECT_TRUE(five->filenameForAbsoluteFrameNumber(4294967298ULL).isNull());
    five->allFilePaths();
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "ERROR: framenumber: 4 not in range of sequence.\n"
              "ERROR: framenumber: 10 not in range of sequence.\n"
              "ERROR: framenumber: 2 not in range of sequence.\n");

    // The deprecated relative operation still answers, and logs its caller with the call stack.
    VKLogCapture log;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    EXPECT_EQ(five->filenameForRelativeFrameNumber(2), "/V/c_0007.dpx");
#pragma GCC diagnostic pop
    const QList<VKLogEntry> entries = log.entries();
    ASSERT_EQ(entries.size(), 2);
    EXPECT_EQ(entries[0].message, QString::fromUtf8("Message \"filenameForRelativeFrameNumber\" is "
                                                    "deprecated, called by\xE2\x80\xA6"));
    EXPECT_EQ(entries[1].prettyFunctionOutput, "-[VKFileSequence filenameForRelativeFrameNumber:]");
    EXPECT_TRUE(entries[1].message.contains("test_Files")) << "a stack reaching into the caller";
}

TEST(VKFileSequence, SizesSumOrSampleThreeMembers)
{
    VKTempDir dir;
    for (int i = 0; i < 10; ++i)
        dir.writeFile(QStringLiteral("c_%1.dpx").arg(i, 4, 10, QLatin1Char('0')),
                      QByteArray(i == 3 ? 7 : 100, 'x'));
    const auto s = S::fileSequenceWithIdentifier(dir.path() + "/c_0-9####.dpx");
    EXPECT_EQ(s->fileSizeFromAllFiles(), 907u);
    EXPECT_EQ(s->overallByteCount(), 1000); // first, middle (5) and last agree
    dir.writeFile("c_0005.dpx", QByteArray(50, 'x'));
    EXPECT_EQ(s->overallByteCount(), 857);
    EXPECT_EQ(S::fileSequenceWithIdentifier(dir.path() + "/c_3-4####.dpx")->overallByteCount(),
              107);

    VKLogCapture log;
    testing::internal::CaptureStdout();
    EXPECT_EQ(s->fileSizeOfFileAtIndex(10), 0);
    testing::internal::GetCapturedStdout();
    ASSERT_EQ(log.messages(), L{"Could not get filePath for index 10"});
    EXPECT_EQ(log.entries()[0].prettyFunctionOutput, "-[VKFileSequence fileSizeOfFileAtIndex:]");
}
