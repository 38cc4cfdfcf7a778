#include "VKTestSupport.h"

#include <QFile>
#include <QProcess>
#include <QStandardPaths>

#include <gtest/gtest.h>

namespace {

struct ToolRun
{
    QByteArray out;
    QByteArray err;
    int status = -1;
};

ToolRun runTool(const QString &program, const QStringList &arguments, const QByteArray &input = {},
                const QString &workingDirectory = {})
{
    QProcess process;
    if (!workingDirectory.isEmpty())
        process.setWorkingDirectory(workingDirectory);
    process.start(program, arguments);
    EXPECT_TRUE(process.waitForStarted(10000)) << qPrintable(program);
    process.write(input);
    process.closeWriteChannel();
    EXPECT_TRUE(process.waitForFinished(60000)) << qPrintable(program);
    ToolRun result;
    result.out = process.readAllStandardOutput();
    result.err = process.readAllStandardError();
    result.status = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    return result;
}

ToolRun vktc(const QStringList &arguments, const QByteArray &input = {})
{
    return runTool(QStringLiteral(VKTC_PATH), arguments, input);
}

ToolRun vkseq(const QStringList &arguments, const QString &workingDirectory)
{
    return runTool(QStringLiteral(VKSEQ_PATH), arguments, {}, workingDirectory);
}

const QByteArray vktcUsage =
    "usage: vktc [options] [EXPRESSION ...]\n"
    "\n"
    "Evaluates timecode expressions and prints one result per line. Without expressions it reads\n"
    "one expression per line from standard input.\n"
    "\n"
    "OPTIONS\n"
    "\t-r, --rate <rate>\n"
    "\t\t24 25 30 23d 29d 23n 29n 50 60 59n 59d, or a measured rate (29.97)\n"
    "\n"
    "\t-d, --drop\n"
    "\t\tDrop-frame counting for a measured rate\n"
    "\n"
    "\t-m, --mode <mode>\n"
    "\t\ttime (default), film (metres), disk (as time) or frames\n"
    "\n"
    "\t-pf, --preserve-frames\n"
    "\t\tKeep the frame count of timestamps at other rates, not their duration\n"
    "\n"
    "\t-l, --lazy\n"
    "\t\tLax evaluation: use the first part that makes sense, ignore the rest\n"
    "\n"
    "\t-b, --beautify\n"
    "\t\tPrint each expression with its timestamps written out in full\n"
    "\n"
    "\t-h, --help\n"
    "\t\tPrint this text\n"
    "\n"
    "\n"
    "EXPRESSIONS\n"
    "\tTimestamps hh:mm:ss.ff (also mm:ss or :ss), packed 0HHMMSSFF, frame counts and plain\n"
    "\tnumbers, joined with + - * / and parentheses. A timestamp may name its own rate:\n"
    "\t00:00:10.00|25. A bare number added to a timestamp counts frames.\n"
    "\n"
    "EXAMPLES\n"
    "\tvktc -r 25 '01:30:00.00 + 00:00:01.00'\n"
    "\tvktc -r 29d '00:00:59.29 + 1'\n"
    "\tvktc -m frames '00:01:00.00 * 2'\n"
    "\tvktc -b '1:30:00 + 0100'\n"
    "\n"
    "EXIT STATUS\n"
    "\t0 all expressions evaluated, 1 an expression did not evaluate, 2 usage error.\n";

const QByteArray vkseqUsage =
    "usage: vkseq [options] [PATH ...]\n"
    "\n"
    "Lists the numbered file sequences in each folder (default: the current folder), one line\n"
    "per sequence: its identifier, a tab and the number of files. A file without a frame\n"
    "number is a line of its own. Names starting with \".\" are skipped.\n"
    "\n"
    "OPTIONS\n"
    "\t-s, --sizes\n"
    "\t\tAdd the total size of each sequence\n"
    "\n"
    "\t-R, --recursive\n"
    "\t\tAlso list every subfolder, depth first, in sorted order\n"
    "\n"
    "\t-c, --check <identifier>\n"
    "\t\tPrint complete, partial or missing and exit 0, 1 or 2\n"
    "\n"
    "\t-h, --help\n"
    "\t\tPrint this text\n"
    "\n"
    "\n"
    "EXAMPLES\n"
    "\tvkseq shots/A                 shots/A/clip_1-100####.dpx\t100\n"
    "\tvkseq -s shots/A              adds the size, such as 1.2 GB\n"
    "\tvkseq -c 'shots/A/clip_1-100####.dpx'\n"
    "\n"
    "EXIT STATUS\n"
    "\t0 success; 1 a path could not be listed. With --check: 0 complete, 1 partial,\n"
    "\t2 missing, 3 the identifier could not be checked.\n";

} // namespace

TEST(Vktc, EvaluatesEachArgumentOnItsOwnLine)
{
    const ToolRun r = vktc({"-r", "25", "01:30:00.00 + 00:00:01.00", "1:30:00 + 0100", "2*3"});
    EXPECT_EQ(r.out, QByteArray("01:30:01.00\n01:30:01.00\n00:00:00.06\n"));
    EXPECT_EQ(r.err, QByteArray());
    EXPECT_EQ(r.status, 0);
}

TEST(Vktc, RatesByCodeAndByMeasurement)
{
    // 29.97 drop frame: one frame after 00:00:59;29 skips the labels 00 and 01.
    EXPECT_EQ(vktc({"-r", "29d", "00:00:59.29 + 1"}).out, QByteArray("00:01:00.02\n"));
    EXPECT_EQ(vktc({"-r", "29.97", "-d", "00:00:59.29 + 1"}).out, QByteArray("00:01:00.02\n"));
    EXPECT_EQ(vktc({"-r", "29.97", "00:00:59.29 + 1"}).out, QByteArray("00:01:00.00\n"));
    // Every measured rate above 49.99 counts as 50 fps, 59.94 included.
    EXPECT_EQ(vktc({"-r", "59.94", "00:00:01.00 + 49"}).out, QByteArray("00:00:01.49\n"));
    EXPECT_EQ(vktc({"--rate", "23d", "00:10:00.00 - 1"}).out, QByteArray("00:09:59.23\n"));
    // The default rate is 24.
    EXPECT_EQ(vktc({"00:00:00.23 + 1"}).out, QByteArray("00:00:01.00\n"));
    // A rate code already says whether it drops: --drop is reported and has no effect.
    const ToolRun coded = vktc({"-r", "30", "-d", "00:00:59.29 + 1"});
    EXPECT_EQ(coded.out, QByteArray("00:01:00.00\n"));
    EXPECT_EQ(coded.err, QByteArray("vktc: --drop applies to measured rates only; rate code 30 "
                                    "already says whether it drops\n"));
    EXPECT_EQ(coded.status, 0);
}

TEST(Vktc, ModesAndPreservation)
{
    EXPECT_EQ(vktc({"-m", "frames", "00:01:00.00 * 2"}).out, QByteArray("2880\n"));
    EXPECT_EQ(vktc({"-m", "film", "00:01:00.00"}).out, QByteArray("27.69 m\n"));
    EXPECT_EQ(vktc({"--mode", "disk", "00:01:00.00"}).out, QByteArray("00:01:00.00\n"));
    // A one-second timestamp at 25 fps keeps its duration, or its 25 frames with -pf.
    EXPECT_EQ(vktc({"00:00:01.00|25"}).out, QByteArray("00:00:01.00\n"));
    EXPECT_EQ(vktc({"-pf", "00:00:01.00|25"}).out, QByteArray("00:00:01.01\n"));
    EXPECT_EQ(vktc({"00:00:01.00/(2-2)"}).out, QByteArray("\u221e\n"));
    EXPECT_EQ(vktc({"-b", "-r", "25", "1:30:00 + 0100"}).out,
              QByteArray("01:30:00.00|25+00:00:01.00|25\n"));
}

TEST(Vktc, FailuresAndUsageErrors)
{
    // What does not evaluate is reported with the part of it that would.
    ToolRun r = vktc({"00:00:01.00", "foo", "01:00", "01:00+"});
    EXPECT_EQ(r.out, QByteArray("00:00:01.00\n00:01:00.00\n"));
    EXPECT_EQ(
        QString::fromUtf8(r.err),
        QString::fromUtf8("vktc: “foo” is not a timecode expression.\n"
                          "vktc: “01:00+” is not a timecode expression; only “01:00” in it is.\n"));
    EXPECT_EQ(r.status, 1);

    r = vktc({"-r", "99x", "1"});
    EXPECT_EQ(r.out, QByteArray());
    EXPECT_EQ(r.err, "vktc: unknown rate: 99x\n" + vktcUsage);
    EXPECT_EQ(r.status, 2);

    r = vktc({"-m", "metres", "1"});
    EXPECT_EQ(r.err, "vktc: unknown mode: metres\n" + vktcUsage);
    EXPECT_EQ(r.status, 2);

    r = vktc({"--help"});
    EXPECT_EQ(r.out, vktcUsage);
    EXPECT_EQ(r.status, 0);
}

TEST(Vktc, ReadsStandardInputWithoutPromptOrEscapesWhenNotATerminal)
{
    const ToolRun r = vktc({"-l"}, "01:00:00.00+12\n\n01:00:00.00+\nbad\n00:00:01.00 junk");
    EXPECT_EQ(r.out, QByteArray("01:00:00.12\n01:00:00.00\n00:00:01.00\n"));
    EXPECT_EQ(QString::fromUtf8(r.err),
              QString::fromUtf8("vktc: “bad” is not a timecode expression.\n"));
    EXPECT_EQ(r.status, 1);
    EXPECT_FALSE(r.out.contains('\x1b'));
}

TEST(Vktc, TerminalShowsPromptAndUnusedPartsInRed)
{
    const QString script = QStandardPaths::findExecutable(QStringLiteral("script"));
    if (script.isEmpty())
        GTEST_SKIP() << "no script(1) to provide a terminal";
    const ToolRun r =
        runTool(script, {"-qec", QStringLiteral(VKTC_PATH " -l"), "/dev/null"}, "01:00:00.00+\n");
    EXPECT_TRUE(r.out.contains("vktc> ")) << r.out.constData();
    EXPECT_TRUE(r.out.contains("01:00:00.00\x1b[31m+\x1b[39m")) << r.out.constData();
    EXPECT_TRUE(r.out.contains("\r\n01:00:00.00\r\n")) << r.out.constData();
}

class Vkseq : public ::testing::Test
{
protected:
    void SetUp() override
    {
        for (int i = 1; i <= 100; ++i)
            dir.writeFile(QStringLiteral("shots/A/clip_%1.dpx").arg(i, 4, 10, QChar(u'0')),
                          QByteArray(1500, 'x'));
        dir.writeFile("shots/A/notes.txt", "hello");
        dir.writeFile("shots/A/.DS_Store", "x");
        for (int frame : {1, 2, 3, 7, 8})
            dir.writeFile(QStringLiteral("shots/B/render.%1.exr").arg(frame));
        dir.writeFile("shots/B/s10/a1.tif");
        dir.writeFile("shots/B/s2/b_01.tif");
        dir.writeFile("shots/B/s2/b_02.tif");
    }
    VKTempDir dir;
};

TEST_F(Vkseq, ListsRunsWithThePathAsGiven)
{
    ToolRun r = vkseq({"shots/A"}, dir.path());
    EXPECT_EQ(r.out, QByteArray("shots/A/clip_1-100####.dpx\t100\nshots/A/notes.txt\t1\n"));
    EXPECT_EQ(r.err, QByteArray());
    EXPECT_EQ(r.status, 0);

    r = vkseq({"-s", "shots/A/", "shots/B"}, dir.path());
    EXPECT_EQ(r.out, QByteArray("shots/A/clip_1-100####.dpx\t100\t150.0 KB\n"
                                "shots/A/notes.txt\t1\t0.0 KB\n"
                                "shots/B/render.1-3#.exr\t3\t0.0 KB\n"
                                "shots/B/render.7-8#.exr\t2\t0.0 KB\n"));

    // Without a path: the current folder, names as they are.
    r = vkseq({}, dir.filePath("shots/B"));
    EXPECT_EQ(r.out, QByteArray("render.1-3#.exr\t3\nrender.7-8#.exr\t2\n"));
}

TEST_F(Vkseq, RecursiveListingIsDepthFirstInNumericOrder)
{
    // A link back up the tree is not followed (it would never end).
    ASSERT_TRUE(QFile::link(dir.filePath("shots"), dir.filePath("shots/B/s2/loop")));
    const ToolRun r = vkseq({"-R", "shots"}, dir.path());
    EXPECT_EQ(r.out, QByteArray("shots/A/clip_1-100####.dpx\t100\n"
                                "shots/A/notes.txt\t1\n"
                                "shots/B/render.1-3#.exr\t3\n"
                                "shots/B/render.7-8#.exr\t2\n"
                                "shots/B/s2/b_1-2##.tif\t2\n"
                                "shots/B/s10/a1-1#.tif\t1\n"));
    EXPECT_EQ(r.status, 0);
}

TEST_F(Vkseq, UnreadablePathsAreReportedAndTheRestListed)
{
    const ToolRun r = vkseq({"shots/none", "shots/A/notes.txt", "shots/B"}, dir.path());
    EXPECT_EQ(r.out, QByteArray("shots/B/render.1-3#.exr\t3\nshots/B/render.7-8#.exr\t2\n"));
    EXPECT_EQ(r.err, QByteArray("vkseq: shots/none: No such file or directory\n"
                                "vkseq: shots/A/notes.txt: Not a directory\n"));
    EXPECT_EQ(r.status, 1);
}

TEST_F(Vkseq, ChecksIdentifiers)
{
    ToolRun r = vkseq({"-c", "shots/A/clip_1-100####.dpx"}, dir.path());
    EXPECT_EQ(r.out, QByteArray("complete\n"));
    EXPECT_EQ(r.status, 0);
    r = vkseq({"--check", "shots/A/clip_50-150####.dpx"}, dir.path());
    EXPECT_EQ(r.out, QByteArray("partial\n"));
    EXPECT_EQ(r.status, 1);
    r = vkseq({"-c", "shots/C/clip_1-3#.dpx"}, dir.path());
    EXPECT_EQ(r.out, QByteArray("missing\n"));
    EXPECT_EQ(r.status, 2);
    // A bare identifier is looked up in the current folder.
    r = vkseq({"-c", "clip_1-100####.dpx"}, dir.filePath("shots/A"));
    EXPECT_EQ(r.out, QByteArray("complete\n"));
    EXPECT_EQ(r.status, 0);
    r = vkseq({"-c", "shots/A/notes.txt"}, dir.path());
    EXPECT_EQ(r.out, QByteArray());
    EXPECT_TRUE(r.err.startsWith("vkseq: shots/A/notes.txt: ")) << r.err.constData();
    EXPECT_EQ(r.status, 3);
}

TEST_F(Vkseq, UsageAndNoProgressWithoutATerminal)
{
    ToolRun r = vkseq({"-h"}, dir.path());
    EXPECT_EQ(r.out, vkseqUsage);
    EXPECT_EQ(r.status, 0);

    for (int i = 0; i < 20001; ++i) {
        QFile f(dir.filePath(QStringLiteral("big/f%1.raw").arg(i)));
        if (i == 0)
            dir.makeDir("big");
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    }
    r = vkseq({"big"}, dir.path());
    EXPECT_EQ(r.out, QByteArray("big/f0-20000#.raw\t20001\n"));
    EXPECT_EQ(r.err, QByteArray());
}
