// The path shortener: distinguishing indices and the exact runs of its display lines.
#include "Files/VKPathShortener.h"
#include "Files/VKVolumeInfoCache.h"
#include "VKTestSupport.h"

#include <QFont>
#include <QIcon>
#include <QRandomGenerator>

#include <gtest/gtest.h>

namespace {

constexpr quint64 NF = VKPathShortener::notFound;
using Paths = QList<std::shared_ptr<VKPath>>;

// A line as its runs joined by "|": "*" for an icon run, a text run with its leading no-break
// space written "_". Checks the attributes of every run on the way.
QString runsOf(const VKAttributedString &line)
{
    QStringList runs;
    for (const VKAttributedString::Run &run : line.runs()) {
        const QString text = line.string().mid(run.range.location, run.range.length);
        if (run.attributes.contains(VKAttachmentAttributeName)) {
            EXPECT_EQ(text, QString(QChar(0xFFFC)));
            EXPECT_EQ(run.attributes.value(VKAttachmentAttributeName).metaType(),
                      QMetaType::fromType<QIcon>());
            EXPECT_EQ(run.attributes.value(VKBaselineOffsetAttributeName), QVariant(-3.0));
            EXPECT_EQ(run.attributes.size(), 2);
            runs.append(QStringLiteral("*"));
        } else {
            EXPECT_EQ(run.attributes.size(), 1);
            EXPECT_EQ(run.attributes.value(VKFontAttributeName).value<QFont>().pointSizeF(), 13.0);
            runs.append(QString(text).replace(u'\u00A0', u'_'));
        }
    }
    return runs.join(u'|');
}

class PathShortener : public ::testing::Test
{
protected:
    std::shared_ptr<VKPath> path(const QString &relative, bool isDirectory = false)
    {
        return VKPath::pathWithVolumeInfo(volume, relative, isDirectory);
    }

    VKTempDir dir;
    std::shared_ptr<VKVolumeInfo> volume =
        std::make_shared<VKVolumeInfo>(dir.path(), QIcon(), QStringLiteral("Card_A"));
};

TEST_F(PathShortener, LinesAndIndices)
{
    dir.writeFile(QStringLiteral("A/Day1/C001.mov"));
    const auto day1 = path("A/Day1/C001.mov"), day2 = path("A/Day2/C001.mov");
    const auto clip1 = path("A/x/C001.mov"), clip2 = path("A/x/C002.mov");
    const auto twin = path("A/Day1/C001.mov"), deeper = path("B/A/Day1/C001.mov");
    const auto folder = path("A/Day1/", true);
    // Flags: volume, folder, file. A trailing slash is a component of its own, and the folder's
    // name is still shown.
    // clang-format off
    const struct { const char *name; Paths paths; bool volume, folder, file;
                   QList<quint64> indices; QStringList lines; } cases[] = {
        {"folders tell apart", {day1, day2}, true, true, true, {1, 1},
         {"*|_Card_A — |*|_Day1 — |*|_C001.mov", "*|_Card_A — |*|_Day2 — |*|_C001.mov"}},
        {"file names tell apart", {clip1, clip2}, true, true, true, {2, 2},
         {"*|_Card_A — |*|_C001.mov", "*|_Card_A — |*|_C002.mov"}},
        {"one path", {day1}, true, true, true, {NF}, {"*|_Card_A — |*|_C001.mov"}},
        {"two objects for one file", {day1, twin}, false, true, true, {NF, NF},
         {"*|_C001.mov", "*|_C001.mov"}},
        {"a rival holding the whole path", {day1, deeper}, false, true, false, {NF, 0},
         {"", "*|_B — "}},
        {"volume only", {day1, clip1}, true, false, false, {1, 1}, {"*|_Card_A", "*|_Card_A"}},
        {"volume and folder", {day1, day2}, true, true, false, {1, 1},
         {"*|_Card_A — |*|_Day1 — ", "*|_Card_A — |*|_Day2 — "}},
        {"directory path", {folder, day1}, false, true, true, {2, 2}, {"*|_Day1", "*|_C001.mov"}},
        {"empty list", {}, true, true, true, {}, {}},
    };
    // clang-format on
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const VKPathShortener shortener(c.paths, c.volume, c.folder, c.file);
        EXPECT_EQ(shortener.uniquePathComponentIndices(), c.indices);
        QStringList lines;
        for (const VKAttributedString &line : shortener.beautifiedPaths())
            lines.append(runsOf(line));
        EXPECT_EQ(lines, c.lines);
    }
    // A path without a volume shows the root volume.
    const auto root = VKVolumeInfoCache::sharedCache()->volumeInfoForPath(QStringLiteral("/"));
    ASSERT_NE(root, nullptr);
    const VKPathShortener rootShortener(
        {VKPath::pathWithVolumeInfo(nullptr, QStringLiteral("a.mov"), false)}, true, false, false);
    EXPECT_EQ(runsOf(rootShortener.beautifiedPaths().value(0)), "*|_" + root->name());
}

TEST_F(PathShortener, SingleCallAgainstRivals)
{
    const auto p = path("A/Day1/C001.mov");
    // clang-format off
    const struct { const char *name; Paths others; quint64 expected; } cases[] = {
        {"no rivals: the file name", {}, 2},
        {"rival with another name", {path("A/Day1/C002.mov")}, 2},
        {"last rival told apart at the top", {path("A/Day2/C001.mov"), path("B/Day1/C001.mov")}, 0},
        {"identical rival", {path("A/Day1/C001.mov")}, NF},
        {"rival with an empty path", {path("")}, 2}, {"shorter rival", {path("Day1/C001.mov")}, 0},
    };
    // clang-format on
    for (const auto &c : cases)
        EXPECT_EQ(VKPathShortener::indexOfComponentInPath(*p, c.others), c.expected) << c.name;
    EXPECT_EQ(VKPathShortener::indexOfComponentInPath(*path(""), {}), NF);

    // The shortener's own pass agrees with the one-path-at-a-time rule on any list of paths.
    const QStringList names = {"A", "B", "C001"};
    QRandomGenerator random(16);
    for (int round = 0; round < 300; ++round) {
        Paths paths;
        for (int i = 0, count = 2 + random.bounded(7); i < count; ++i) {
            QString relative = names[random.bounded(3)];
            for (int depth = random.bounded(4); depth > 0; --depth)
                relative += u'/' + names[random.bounded(3)];
            paths.append(i > 0 && random.bounded(5) == 0 ? paths[random.bounded(i)]
                                                         : path(relative));
        }
        const VKPathShortener shortener(paths, false, false, false);
        for (qsizetype i = 0; i < paths.size(); ++i) {
            Paths others = paths;
            others.removeAll(paths[i]);
            ASSERT_EQ(shortener.uniquePathComponentIndices()[i],
                      VKPathShortener::indexOfComponentInPath(*paths[i], others))
                << "round " << round << " path " << i;
        }
    }
}

} // namespace
