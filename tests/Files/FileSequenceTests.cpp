#include "Files/VKFileSequence.h"
#include "Foundation/VKNumericStringCompare.h"

#include "VKTestSupport.h"

#include <QDir>

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

using L = QStringList;
using S = VKFileSequence;

namespace {

constexpr quint64 notFound = 0x7FFFFFFFFFFFFFFFULL;

QList<L> runsOf(const L &files)
{
    return S::sequencesWithFiles(files);
}

std::shared_ptr<S> sequence(const QString &prefix, quint64 start, quint64 end, quint64 padding,
                            const QString &postfix)
{
    auto s = std::make_shared<S>();
    s->setPrefix(prefix);
    s->setStartFrame(start);
    s->setEndFrameInclusive(end);
    s->setPadding(padding);
    s->setPostfix(postfix);
    return s;
}

} // namespace

TEST(VKFileSequence, FrameDigitsPrefixPostfixAndPaddingOfAFile)
{
    EXPECT_EQ(S::frameStringForFile("/V/A001_C002.0001.dpx"), QStringLiteral("0001"));
    EXPECT_EQ(S::frameStringForFile("clip7a"), QStringLiteral("7"));
    EXPECT_TRUE(S::frameStringForFile("clip.dpx").isNull());
    EXPECT_TRUE(S::frameStringForFile("").isNull());
    // Digits only in a folder name do not count, but prefix and postfix span the whole path.
    EXPECT_TRUE(S::frameStringForFile("/V/reel12/clip.dpx").isNull());
    EXPECT_EQ(S::frameNumberForFile("/V/reel12/clip.dpx"), qint64(notFound));
    EXPECT_TRUE(S::prefixStringForFile("/V/reel12/clip.dpx").isNull());
    EXPECT_TRUE(S::postfixStringForFile("/V/reel12/clip.dpx").isNull());
    EXPECT_EQ(S::prefixStringForFile("/V/reel12/clip_0098.dpx"), QStringLiteral("/V/reel12/clip_"));
    EXPECT_EQ(S::postfixStringForFile("/V/reel12/clip_0098.dpx"), QStringLiteral(".dpx"));
    // A name that is all digits.
    EXPECT_EQ(S::frameStringForFile("/V/0042"), QStringLiteral("0042"));
    EXPECT_EQ(S::prefixStringForFile("/V/0042"), QStringLiteral("/V/"));
    EXPECT_EQ(S::postfixStringForFile("/V/0042"), QStringLiteral(""));
    EXPECT_FALSE(S::postfixStringForFile("/V/0042").isNull());
    // Spaces and several dots.
    EXPECT_EQ(S::prefixStringForFile("/V/My Shot v2.final.0007.tar.gz"),
              QStringLiteral("/V/My Shot v2.final."));
    EXPECT_EQ(S::postfixStringForFile("/V/My Shot v2.final.0007.tar.gz"),
              QStringLiteral(".tar.gz"));
    EXPECT_EQ(S::frameNumberForFile("/V/My Shot v2.final.0007.tar.gz"), 7);

    EXPECT_EQ(S::paddingForFile("clip_0098.dpx"), 4u);
    EXPECT_EQ(S::paddingForFile("clip_0.dpx"), 1u);
    EXPECT_EQ(S::paddingForFile("clip_1000.dpx"), 1u);
    EXPECT_EQ(S::paddingForFile("clip.dpx"), 1u);
}

TEST(VKFileSequence, FrameNumbersSaturateAt32Bits)
{
    EXPECT_EQ(S::frameNumberForFile("c_2147483647.dpx"), 2147483647);
    EXPECT_EQ(S::frameNumberForFile("c_2147483648.dpx"), 2147483647);
    EXPECT_EQ(S::frameNumberForFile("c_99999999999999999999999.dpx"), 2147483647);
    EXPECT_EQ(S::frameStringForFile("c_99999999999.dpx"), QStringLiteral("99999999999"));
    // Both read as the same frame, and a repeated frame ends a run.
    EXPECT_EQ(runsOf({"c_2147483648.dpx", "c_2147483647.dpx"}),
              (QList<L>{{"c_2147483647.dpx"}, {"c_2147483648.dpx"}}));
}

TEST(VKFileSequence, GroupingSortsNumericallyInAnyInputOrder)
{
    const L expected = {"a9.dpx", "a10.dpx", "a11.dpx"};
    L input = expected;
    do {
        const QList<L> runs = runsOf(input);
        ASSERT_EQ(runs, QList<L>{expected});
        const auto s = S::fileSequenceWithSequenceOfFiles(runs.first());
        EXPECT_EQ(s->startFrame(), 9u);
        EXPECT_EQ(s->endFrameInclusive(), 11u);
        EXPECT_EQ(s->padding(), 1u);
        EXPECT_EQ(s->identifier(), QStringLiteral("a9-11#.dpx"));
    } while (std::next_permutation(input.begin(), input.end()));
    EXPECT_EQ(runsOf({}), QList<L>{});
}

TEST(VKFileSequence, GroupingCutsAtGapsRepeatsPrefixesAndPostfixes)
{
    EXPECT_EQ(runsOf({"clip_0004.dpx", "clip_0001.dpx", "clip_0002.dpx"}),
              (QList<L>{{"clip_0001.dpx", "clip_0002.dpx"}, {"clip_0004.dpx"}}));
    EXPECT_EQ(S::fileSequenceWithSequenceOfFiles({"clip_0001.dpx", "clip_0002.dpx"})->padding(),
              4u);
    EXPECT_EQ(runsOf({"x_001.tif", "x_001.dpx"}), (QList<L>{{"x_001.dpx"}, {"x_001.tif"}}));
    EXPECT_EQ(runsOf({"x_001.dpx", "x_002.DPX"}), (QList<L>{{"x_001.dpx"}, {"x_002.DPX"}}));
    EXPECT_EQ(runsOf({"b/0002.dpx", "a/0001.dpx"}), (QList<L>{{"a/0001.dpx"}, {"b/0002.dpx"}}));
    EXPECT_EQ(runsOf({"s_1.dpx", "s_1.dpx", "s_2.dpx"}),
              (QList<L>{{"s_1.dpx"}, {"s_1.dpx", "s_2.dpx"}}));
    // Equal frame numbers written differently: a01 sorts first, then a1 repeats frame 1.
    EXPECT_EQ(runsOf({"a1.x", "a01.x", "a2.x"}), (QList<L>{{"a01.x"}, {"a1.x", "a2.x"}}));
}

TEST(VKFileSequence, FilesWithoutFrameNumberStandAlone)
{
    EXPECT_EQ(runsOf({"/V/clip.dpx", "/V/clip_1.dpx", "/V/clip_2.dpx", "/V/notes.txt"}),
              (QList<L>{{"/V/clip.dpx"}, {"/V/clip_1.dpx", "/V/clip_2.dpx"}, {"/V/notes.txt"}}));
    EXPECT_EQ(runsOf({"/V/r2/clip.dpx", "/V/r1/clip.dpx"}),
              (QList<L>{{"/V/r1/clip.dpx"}, {"/V/r2/clip.dpx"}}));
    EXPECT_EQ(runsOf({"x", "x"}), (QList<L>{{"x"}, {"x"}}));

    const auto lone = S::fileSequenceWithSequenceOfFiles({"/V/clip.dpx"});
    ASSERT_TRUE(lone);
    EXPECT_EQ(lone->identifier(), QStringLiteral("/V/clip.dpx"));
    EXPECT_EQ(lone->prefix(), QStringLiteral("/V/clip.dpx"));
    EXPECT_EQ(lone->postfix(), QStringLiteral(""));
    EXPECT_EQ(lone->padding(), 0u);
    EXPECT_EQ(lone->startFrame(), notFound);
    EXPECT_EQ(lone->numberOfFiles(), 1u);
    // A numbered first file with an unnumbered last one: the first stands for the list.
    const auto mixed = S::fileSequenceWithSequenceOfFiles({"/V/c_0003.dpx", "/V/c.dpx"});
    EXPECT_EQ(mixed->identifier(), QStringLiteral("/V/c_0003.dpx"));
    EXPECT_EQ(mixed->startFrame(), 3u);
    EXPECT_EQ(mixed->padding(), 0u);
}

TEST(VKFileSequence, GroupingOfUnusualNames)
{
    // All-digit names, Unicode digits, leading zeros that only the first file shows, spaces and
    // dots, one-file runs.
    EXPECT_EQ(runsOf({"/V/0002", "/V/0001", "/V/0003"}),
              (QList<L>{{"/V/0001", "/V/0002", "/V/0003"}}));
    const L arabic = {u"/V/c_\u0669.dpx"_qs, u"/V/c_\u0661\u0660.dpx"_qs};
    EXPECT_EQ(runsOf({arabic[1], arabic[0]}), QList<L>{arabic});
    EXPECT_EQ(S::frameNumberForFile(arabic[1]), 10);
    const QList<L> zeros = runsOf({"c_100.dpx", "c_99.dpx", "c_0098.dpx"});
    ASSERT_EQ(zeros, (QList<L>{{"c_0098.dpx", "c_99.dpx", "c_100.dpx"}}));
    EXPECT_EQ(S::fileSequenceWithSequenceOfFiles(zeros[0])->identifier(),
              QStringLiteral("c_98-100####.dpx"));
    const L spaced = {"/V/My Shot v2.final.0009.dpx", "/V/My Shot v2.final.0010.dpx"};
    EXPECT_EQ(runsOf({spaced[1], spaced[0]}), QList<L>{spaced});
    EXPECT_EQ(S::fileSequenceWithFiles(spaced)->identifier(),
              QStringLiteral("/V/My Shot v2.final.9-10####.dpx"));
    const auto single = S::fileSequenceWithFiles({"/V/c_0005.dpx"});
    EXPECT_EQ(single->identifier(), QStringLiteral("/V/c_5-5####.dpx"));
    EXPECT_EQ(single->numberOfFiles(), 1u);
}

TEST(VKFileSequence, EveryPathLandsInExactlyOneSortedRun)
{
    std::mt19937 random(42);
    const L folders = {"/A/", "/A/r1/", "/B 2/"};
    const L names = {"c_", "C_", "d.", "", "e_v2_"};
    const L tails = {".dpx", ".exr", "", ".0.tif"};
    L input;
    for (int i = 0; i < 3000; ++i) {
        QString path = folders[random() % folders.size()] + names[random() % names.size()];
        if (random() % 10)
            path += QString::number(random() % 400).rightJustified(int(random() % 5), u'0');
        input.append(path + tails[random() % tails.size()]);
    }
    const QList<L> runs = runsOf(input);
    L flattened;
    for (const L &run : runs) {
        ASSERT_FALSE(run.isEmpty());
        flattened += run;
        for (qsizetype i = 1; i < run.size(); ++i) {
            EXPECT_EQ(S::frameNumberForFile(run[i]), S::frameNumberForFile(run[i - 1]) + 1);
            EXPECT_EQ(S::prefixStringForFile(run[i]), S::prefixStringForFile(run[0]));
            EXPECT_EQ(S::postfixStringForFile(run[i]), S::postfixStringForFile(run[0]));
        }
    }
    // Every path once, runs in sorted order, and adjacent runs could not have been joined.
    L resorted = input;
    std::sort(resorted.begin(), resorted.end(), VKNumericStringCompare::lessThan);
    EXPECT_EQ(flattened, resorted);
    for (qsizetype r = 1; r < runs.size(); ++r) {
        const QString &last = runs[r - 1].last();
        const QString &next = runs[r].first();
        const qint64 frame = S::frameNumberForFile(next);
        const bool joinable = frame != qint64(notFound) &&
                              S::frameNumberForFile(last) != qint64(notFound) &&
                              frame == S::frameNumberForFile(last) + 1 &&
                              S::prefixStringForFile(last) == S::prefixStringForFile(next) &&
                              S::postfixStringForFile(last) == S::postfixStringForFile(next);
        EXPECT_FALSE(joinable) << last.toStdString() << " | " << next.toStdString();
    }
}

TEST(VKFileSequence, InitialisersAnswerNothingOnFailure)
{
    EXPECT_FALSE(S::fileSequenceWithFiles({}));
    EXPECT_FALSE(S::fileSequenceWithFiles({"c_1.dpx", "c_3.dpx"}));
    EXPECT_FALSE(S::fileSequenceWithSequenceOfFiles({}));
    const auto s = S::fileSequenceWithFiles({"/V/c_0012.dpx", "/V/c_0011.dpx", "/V/c_0010.dpx"});
    ASSERT_TRUE(s);
    EXPECT_EQ(s->prefix(), QStringLiteral("/V/c_"));
    EXPECT_EQ(s->postfix(), QStringLiteral(".dpx"));
    EXPECT_EQ(s->startFrame(), 10u);
    EXPECT_EQ(s->endFrameInclusive(), 12u);
    EXPECT_EQ(s->duration(), 3u);

    const QList<std::shared_ptr<S>> all =
        S::fileSequencesWithFiles({"/V/c_0002.dpx", "/V/notes.txt", "/V/c_0001.dpx"});
    ASSERT_EQ(all.size(), 2);
    EXPECT_EQ(all[0]->identifier(), QStringLiteral("/V/c_1-2####.dpx"));
    EXPECT_EQ(all[1]->identifier(), QStringLiteral("/V/notes.txt"));
}

TEST(VKFileSequence, IdentifiersRoundTrip)
{
    const auto s = sequence("/V/clip_", 1, 100, 4, ".dpx");
    EXPECT_EQ(s->identifier(), QStringLiteral("/V/clip_1-100####.dpx"));
    EXPECT_EQ(s->paddingString(), QStringLiteral("####"));
    const auto parsed = S::fileSequenceWithIdentifier(s->identifier());
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->prefix(), QStringLiteral("/V/clip_"));
    EXPECT_EQ(parsed->postfix(), QStringLiteral(".dpx"));
    EXPECT_EQ(parsed->padding(), 4u);
    EXPECT_EQ(parsed->startFrame(), 1u);
    EXPECT_EQ(parsed->endFrameInclusive(), 100u);

    const auto big = S::fileSequenceWithIdentifier("/V/c_4294967296-4294967297##.exr");
    ASSERT_TRUE(big);
    EXPECT_EQ(big->startFrame(), 4294967296u);
    EXPECT_EQ(big->numberOfFiles(), 2u);
    EXPECT_EQ(big->identifier(), QStringLiteral("/V/c_4294967296-4294967297##.exr"));

    const auto bare = S::fileSequenceWithIdentifier("1-1#");
    ASSERT_TRUE(bare);
    EXPECT_EQ(bare->prefix(), QStringLiteral(""));
    EXPECT_FALSE(bare->prefix().isNull());
    EXPECT_EQ(bare->postfix(), QStringLiteral(""));
    EXPECT_EQ(bare->numberOfFiles(), 1u);
    EXPECT_EQ(sequence("", 0, 0, 0, "")->identifier(), QStringLiteral("0-0"));
    EXPECT_EQ(sequence("x", notFound, 3, 2, "y")->identifier(), QStringLiteral("x"));

    // A "#" in the folder is fine as long as the last "#" run is in the name.
    const auto hashFolder = S::fileSequenceWithIdentifier("/V/take#2/c_7-9##.dpx");
    ASSERT_TRUE(hashFolder);
    EXPECT_EQ(hashFolder->prefix(), QStringLiteral("/V/take#2/c_"));
    // Spaces and dots survive; the identifier is taken as given.
    const auto spaced = S::fileSequenceWithIdentifier("My Shot v2.final.9-10####.tar.gz");
    ASSERT_TRUE(spaced);
    EXPECT_EQ(spaced->prefix(), QStringLiteral("My Shot v2.final."));
    EXPECT_EQ(spaced->postfix(), QStringLiteral(".tar.gz"));
    // Beyond 64 bits the numbers saturate.
    const auto huge = S::fileSequenceWithIdentifier("c_1-99999999999999999999#");
    ASSERT_TRUE(huge);
    EXPECT_EQ(huge->endFrameInclusive(), notFound);
}

TEST(VKFileSequence, ParseRejectsWhatIsNotAnIdentifierAndChangesNothing)
{
    VKLogCapture log;
    for (const char *text :
         {"clip_100-1##.dpx", "clip_1-100.dpx", "clip_1_100##.dpx", "dir##/clip_1-2.dpx", "#", "1#",
          "-1#", "a-1#", "1--2#", "1-2", "##/1-2"}) {
        S s;
        s.setPrefix("keep");
        s.setStartFrame(5);
        EXPECT_FALSE(s.parseIdentifier(text)) << text;
        EXPECT_EQ(s.prefix(), QStringLiteral("keep"));
        EXPECT_EQ(s.startFrame(), 5u);
        EXPECT_FALSE(S::fileSequenceWithIdentifier(text)) << text;
    }
    EXPECT_TRUE(log.entries().isEmpty());

    S s;
    EXPECT_FALSE(s.parseIdentifier(QString()));
    EXPECT_FALSE(s.parseIdentifier(QStringLiteral("")));
    const QList<VKLogEntry> entries = log.entries();
    ASSERT_EQ(entries.size(), 2);
    EXPECT_EQ(entries[0].message,
              QStringLiteral("[VKFileSequence parseIdentifier:] was called with nil argument"));
    EXPECT_EQ(
        entries[1].message,
        QStringLiteral("[VKFileSequence parseIdentifier:] was called with zero length argument"));
    EXPECT_EQ(entries[0].level, VKLogLevel::Error);
    EXPECT_EQ(entries[0].className, QStringLiteral("VKFileSequence"));
    EXPECT_EQ(entries[0].prettyFunctionOutput,
              QStringLiteral("-[VKFileSequence parseIdentifier:]"));
    EXPECT_EQ(entries[0].pointer, vkFormat("%p", static_cast<const void *>(&s)));
}

TEST(VKFileSequence, InAndOutPointsUpToTheCountAreAccepted)
{
    const auto s = sequence("/V/c_", 10, 19, 2, ".dpx"); // ten members
    EXPECT_EQ(s->identifierWithInPoint(0, 9), QStringLiteral("/V/c_10-19##.dpx"));
    EXPECT_EQ(s->identifierWithInPoint(2, 4), QStringLiteral("/V/c_12-14##.dpx"));
    EXPECT_EQ(s->identifierWithInPoint(10, 10), QStringLiteral("/V/c_20-20##.dpx"));
    EXPECT_EQ(s->identifierWithInPoint(0, 11), s->identifier());
    EXPECT_EQ(s->identifierWithInPoint(11, 0), s->identifier());
    EXPECT_EQ(s->identifierWithInPoint(~0ULL, 0), s->identifier());
}

TEST(VKFileSequence, MemberNamesPadButNeverCut)
{
    const auto s = sequence("/V/clip_", 7, 12345, 4, ".dpx");
    EXPECT_EQ(s->filenameForAbsoluteFrameNumber(7), QStringLiteral("/V/clip_0007.dpx"));
    EXPECT_EQ(s->filenameForAbsoluteFrameNumber(12345), QStringLiteral("/V/clip_12345.dpx"));
    EXPECT_EQ(s->filePathForRelativeFrameNumber(3), QStringLiteral("/V/clip_0010.dpx"));
    EXPECT_EQ(sequence("c", 0, 1, 0, "")->filenameForAbsoluteFrameNumber(0), QStringLiteral("c0"));

    const auto small = sequence("/V/c_", 8, 11, 3, ".exr");
    EXPECT_EQ(small->allFilePaths(),
              (L{"/V/c_008.exr", "/V/c_009.exr", "/V/c_010.exr", "/V/c_011.exr"}));
    const QList<QUrl> urls = small->allFileURLs();
    ASSERT_EQ(urls.size(), 4);
    EXPECT_EQ(urls[0], QUrl("file:///V/c_008.exr"));
    EXPECT_EQ(urls[3].toLocalFile(), QStringLiteral("/V/c_011.exr"));
    const QList<QUrl> relative = sequence("my c_", 1, 1, 1, ".dpx")->allFileURLs();
    ASSERT_EQ(relative.size(), 1);
    EXPECT_EQ(relative[0].toLocalFile(), QDir::current().absoluteFilePath("my c_1.dpx"));
}

TEST(VKFileSequence, OutOfRangeFramesWriteOneLineAndAnswerNothing)
{
    const auto s = sequence("/V/c_", 5, 9, 4, ".dpx");
    testing::internal::CaptureStdout();
    const QString before = s->filenameForAbsoluteFrameNumber(4);
    const QString after = s->filenameForAbsoluteFrameNumber(10);
    const QString wide = s->filenameForAbsoluteFrameNumber(4294967298ULL);
    const QString relative = s->filePathForRelativeFrameNumber(5);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(before.isNull());
    EXPECT_TRUE(after.isNull());
    EXPECT_TRUE(wide.isNull());
    EXPECT_TRUE(relative.isNull());
    EXPECT_EQ(out, "ERROR: framenumber: 4 not in range of sequence.\n"
                   "ERROR: framenumber: 10 not in range of sequence.\n"
                   "ERROR: framenumber: 2 not in range of sequence.\n"
                   "ERROR: framenumber: 10 not in range of sequence.\n");
    testing::internal::CaptureStdout();
    s->allFilePaths();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(VKFileSequence, DeprecatedRelativeFrameOperationLogsItsCaller)
{
    const auto s = sequence("/V/c_", 5, 9, 4, ".dpx");
    VKLogCapture log;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    const QString name = s->filenameForRelativeFrameNumber(2);
#pragma GCC diagnostic pop
    EXPECT_EQ(name, QStringLiteral("/V/c_0007.dpx"));
    const QList<VKLogEntry> entries = log.entries();
    ASSERT_EQ(entries.size(), 2);
    EXPECT_EQ(entries[0].message,
              QString::fromUtf8("Message \"filenameForRelativeFrameNumber\" is deprecated, "
                                "called by\xE2\x80\xA6"));
    EXPECT_EQ(entries[0].level, VKLogLevel::Error);
    EXPECT_EQ(entries[1].level, VKLogLevel::Error);
    EXPECT_EQ(entries[1].prettyFunctionOutput,
              QStringLiteral("-[VKFileSequence filenameForRelativeFrameNumber:]"));
    // The call stack, one frame a line, reaching back into this test program.
    const QString stack = entries[1].message;
    EXPECT_TRUE(stack.startsWith(u'(')) << stack.toStdString();
    EXPECT_TRUE(stack.contains(QStringLiteral("test_Files"))) << stack.toStdString();
    EXPECT_GE(stack.count(u'\n'), 3);
}

TEST(VKFileSequence, SizesSumAndSample)
{
    VKTempDir dir;
    for (int i = 0; i < 10; ++i)
        dir.writeFile(QStringLiteral("c_%1.dpx").arg(i, 4, 10, QLatin1Char('0')),
                      QByteArray(i == 3 ? 7 : 100, 'x'));
    const auto s = S::fileSequenceWithIdentifier(dir.path() + "/c_0-9####.dpx");
    ASSERT_TRUE(s);
    EXPECT_EQ(s->fileSizeOfFileAtIndex(3), 7);
    EXPECT_EQ(s->fileSizeFromAllFiles(), 907u);
    // First, middle (index 5) and last agree, so the odd member is never read.
    EXPECT_EQ(s->overallByteCount(), 1000);
    dir.writeFile("c_0005.dpx", QByteArray(50, 'x'));
    EXPECT_EQ(s->overallByteCount(), 857);
    // Fewer than three members are always summed.
    const auto two = S::fileSequenceWithIdentifier(dir.path() + "/c_3-4####.dpx");
    EXPECT_EQ(two->overallByteCount(), 107);

    VKLogCapture log;
    testing::internal::CaptureStdout();
    EXPECT_EQ(s->fileSizeOfFileAtIndex(10), 0);
    testing::internal::GetCapturedStdout();
    ASSERT_EQ(log.messages(), L{"Could not get filePath for index 10"});
    EXPECT_EQ(log.entries()[0].prettyFunctionOutput,
              QStringLiteral("-[VKFileSequence fileSizeOfFileAtIndex:]"));
}

TEST(VKFileSequence, OverallByteCountOfAHugeSequenceReadsThreeFiles)
{
    // Only the three sampled members exist: reading any other one would change the answer.
    VKTempDir dir;
    for (int frame : {1, 50001, 100000})
        dir.writeFile(QStringLiteral("f_%1.exr").arg(frame, 6, 10, QLatin1Char('0')),
                      QByteArray(4096, 'x'));
    const auto s = S::fileSequenceWithIdentifier(dir.path() + "/f_1-100000######.exr");
    ASSERT_TRUE(s);
    EXPECT_EQ(s->numberOfFiles(), 100000u);
    EXPECT_EQ(s->overallByteCount(), 4096LL * 100000);
}
