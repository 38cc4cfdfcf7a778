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

TEST(Vktc, ArgumentsRatesModesAndFailures)
{
    // 29.97 drop frame: one frame after 00:00:59;29 skips the labels 00 and 01. Every measured
    // rate above 49.99 counts as 50 fps, 59.94 included; the default rate is 24. A rate code
    // already says whether it drops. A one-second timestamp at 25 fps keeps its duration, or its
    // 25 frames with -pf. What does not evaluate is reported with the part of it that would.
    // clang-format off
    const struct { QStringList arguments; const char *out, *err; int status; } cases[] = {
        {{"-r", "25", "01:30:00.00 + 00:00:01.00", "1:30:00 + 0100", "2*3"}, "01:30:01.00\n01:30:01.00\n00:00:00.06\n", "", 0},
        {{"-r", "29d", "00:00:59.29 + 1"}, "00:01:00.02\n", "", 0},
        {{"-r", "29.97", "-d", "00:00:59.29 + 1"}, "00:01:00.02\n", "", 0},
        {{"-r", "29.97", "00:00:59.29 + 1"}, "00:01:00.00\n", "", 0},
        {{"-r", "59.94", "00:00:01.00 + 49"}, "00:00:01.49\n", "", 0},
        {{"--rate", "23d", "00:10:00.00 - 1"}, "00:09:59.23\n", "", 0},
        {{"00:00:00.23 + 1"}, "00:00:01.00\n", "", 0},
        {{"-r", "30", "-d", "00:00:59.29 + 1"}, "00:01:00.00\n",
         "vktc: --drop applies to measured rates only; rate code 30 already says whether it drops\n", 0},
        {{"-m", "frames", "00:01:00.00 * 2"}, "2880\n", "", 0},
        {{"-m", "film", "00:01:00.00"}, "27.69 m\n", "", 0},
        {{"--mode", "disk", "00:01:00.00"}, "00:01:00.00\n", "", 0},
        {{"00:00:01.00|25"}, "00:00:01.00\n", "", 0}, {{"-pf", "00:00:01.00|25"}, "00:00:01.01\n", "", 0},
        {{"00:00:01.00/(2-2)"}, "\u221e\n", "", 0},
        {{"-b", "-r", "25", "1:30:00 + 0100"}, "01:30:00.00|25+00:00:01.00|25\n", "", 0},
        {{"00:00:01.00", "foo", "01:00", "01:00+"}, "00:00:01.00\n00:01:00.00\n",
         "vktc: “foo” is not a timecode expression.\n"
         "vktc: “01:00+” is not a timecode expression; only “01:00” in it is.\n", 1},
    };
    // clang-format on
    for (const auto &c : cases) {
        const ToolRun r = vktc(c.arguments);
        SCOPED_TRACE(c.arguments.join(u' ').toStdString());
        EXPECT_EQ(QString::fromUtf8(r.out), QString::fromUtf8(c.out));
        EXPECT_EQ(QString::fromUtf8(r.err), QString::fromUtf8(c.err));
        EXPECT_EQ(r.status, c.status);
    }
    // Usage errors print the usage after the reason and exit 2; --help prints it on output.
    for (const auto &[arguments, reason] :
         {std::pair(QStringList{"-r", "99x", "1"}, QByteArray("vktc: unknown rate: 99x\n")),
          std::pair(QStringList{"-m", "metres", "1"}, QByteArray("vktc: unknown mode: metres\n"))}) {
        const ToolRun r = vktc(arguments);
        EXPECT_EQ(r.out, QByteArray());
        EXPECT_EQ(r.err, reason + vktcUsage);
        EXPECT_EQ(r.status, 2);
    }
    const ToolRun help = vktc({"--help"});
    EXPECT_EQ(help.out, vktcUsage);
    EXPECT_EQ(help.status, 0);
}

TEST(Vktc, StandardInputWithoutATerminalAndPromptAndColoursWithOne)
{
    const ToolRun r = vktc({"-l"}, "01:00:00.00+12\n\n01:00:00.00+\nbad\n00:00:01.00 junk");
    EXPECT_EQ(r.out, QByteArray("01:00:00.12\n01:00:00.00\n00:00:01.00\n"));
    EXPECT_EQ(QString::fromUtf8(r.err), QString::fromUtf8("vktc: “bad” is not a timecode expression.\n"));
    EXPECT_EQ(r.status, 1);

    const QString script = QStandardPaths::findExecutable(QStringLiteral("script"));
    if (script.isEmpty())
        GTEST_SKIP() << "no script(1) to provide a terminal";
    const ToolRun t =
        runTool(script, {"-qec", QStringLiteral(VKTC_PATH " -l"), "/dev/null"}, "01:00:00.00+\n");
    EXPECT_TRUE(t.out.contains("vktc> ")) << t.out.constData();
    EXPECT_TRUE(t.out.contains("01:00:00.00\x1b[31m+\x1b[39m")) << t.out.constData();
    EXPECT_TRUE(t.out.contains("\r\n01:00:00.00\r\n")) << t.out.constData();
}

TEST(Vkseq, ListingsChecksAndExitStatus)
{
    VKTempDir dir;
    for (int i = 1; i <= 100; ++i)
        dir.writeFile(QStringLiteral("shots/A/clip_%1.dpx").arg(i, 4, 10, QChar(u'0')),
                      QByteArray(1500, 'x'));
    for (const char *name : {"shots/A/notes.txt", "shots/A/.DS_Store", "shots/B/s10/a1.tif",
                             "shots/B/s2/b_01.tif", "shots/B/s2/b_02.tif"})
        dir.writeFile(QString::fromLatin1(name), "hello");
    for (int frame : {1, 2, 3, 7, 8})
        dir.writeFile(QStringLiteral("shots/B/render.%1.exr").arg(frame));
    // A link back up the tree is not followed (it would never end).
    ASSERT_TRUE(QFile::link(dir.filePath("shots"), dir.filePath("shots/B/s2/loop")));
    const QByteArray runsOfB = "shots/B/render.1-3#.exr\t3\nshots/B/render.7-8#.exr\t2\n";
    // clang-format off
    const struct { QStringList arguments; const char *folder; QByteArray out, err; int status; } cases[] = {
        {{"shots/A"}, "", "shots/A/clip_1-100####.dpx\t100\nshots/A/notes.txt\t1\n", "", 0},
        {{"-s", "shots/A/", "shots/B"}, "", "shots/A/clip_1-100####.dpx\t100\t150.0 KB\n"
         "shots/A/notes.txt\t1\t0.0 KB\nshots/B/render.1-3#.exr\t3\t0.0 KB\nshots/B/render.7-8#.exr\t2\t0.0 KB\n", "", 0},
        {{}, "shots/B", "render.1-3#.exr\t3\nrender.7-8#.exr\t2\n", "", 0},
        {{"-R", "shots"}, "", "shots/A/clip_1-100####.dpx\t100\nshots/A/notes.txt\t1\n" + runsOfB +
         "shots/B/s2/b_1-2##.tif\t2\nshots/B/s10/a1-1#.tif\t1\n", "", 0},
        {{"shots/none", "shots/A/notes.txt", "shots/B"}, "", runsOfB,
         "vkseq: shots/none: No such file or directory\nvkseq: shots/A/notes.txt: Not a directory\n", 1},
        {{"-c", "shots/A/clip_1-100####.dpx"}, "", "complete\n", "", 0},
        {{"--check", "shots/A/clip_50-150####.dpx"}, "", "partial\n", "", 1},
        {{"-c", "shots/C/clip_1-3#.dpx"}, "", "missing\n", "", 2},
        {{"-c", "clip_1-100####.dpx"}, "shots/A", "complete\n", "", 0}, // in the current folder
        {{"-c", "shots/A/notes.txt"}, "", "", "vkseq: shots/A/notes.txt: “shots/A/notes.txt” is not a file sequence identifier.\n", 3},
        {{"-h"}, "", vkseqUsage, "", 0},
    };
    // clang-format on
    for (const auto &c : cases) {
        SCOPED_TRACE(c.arguments.join(u' ').toStdString());
        const ToolRun r = vkseq(c.arguments, dir.filePath(QString::fromLatin1(c.folder)));
        EXPECT_EQ(r.out, c.out);
        EXPECT_EQ(QString::fromUtf8(r.err), QString::fromUtf8(c.err));
        EXPECT_EQ(r.status, c.status);
    }
}

TEST(Vkseq, NoProgressWithoutATerminal)
{
    VKTempDir dir;
    dir.makeDir("big");
    for (int i = 0; i < 20001; ++i)
        ASSERT_TRUE(QFile(dir.filePath(QStringLiteral("big/f%1.raw").arg(i))).open(QIODevice::WriteOnly));
    const ToolRun r = vkseq({"big"}, dir.path());
    EXPECT_EQ(r.out, QByteArray("big/f0-20000#.raw\t20001\n"));
    EXPECT_EQ(r.err, QByteArray());
}
