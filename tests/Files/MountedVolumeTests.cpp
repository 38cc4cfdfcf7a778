// Volumes on real file systems: small ext4 and ext2 images, loop-mounted under the media root
// inside a private mount namespace, so nothing reaches the machine's own mounts.
//
// MountNamespace.RunsTheVolumeTests starts this binary again under `unshare --mount` with
// VK_TEST_MOUNT_NAMESPACE set; only there do the MountedVolumes tests run (they skip elsewhere).
#include "Files/VKFileSize.h"
#include "Files/VKPath.h"
#include "Files/VKStatInfo.h"
#include "Files/VKVolumeInfoCache.h"
#include "VKTestProcess.h"
#include "VKTestSupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>
#include <QStorageInfo>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace {

const char kNamespaceVariable[] = "VK_TEST_MOUNT_NAMESPACE";
const char kParentNamespaceVariable[] = "VK_TEST_PARENT_MOUNT_NAMESPACE";
// 2009-02-13 23:31:30 UTC, the time the first image is made at.
const qint64 kImageTime = 1234567890;

bool inNamespace()
{
    return qEnvironmentVariableIsSet(kNamespaceVariable);
}

QString mountNamespace()
{
    return QFile::symLinkTarget(QStringLiteral("/proc/self/ns/mnt"));
}

QString findProgram(const QString &name)
{
    const QString path = QStandardPaths::findExecutable(name);
    return path.isEmpty() ? QStandardPaths::findExecutable(name, {"/usr/sbin", "/sbin"}) : path;
}

// Runs a program found by findProgram, its two output channels merged.
VKProgramRun run(const QString &program, const QStringList &arguments,
                 const QProcessEnvironment &environment = QProcessEnvironment::systemEnvironment())
{
    return vkRunProgram(findProgram(program), arguments, environment, QProcess::MergedChannels);
}

TEST(MountNamespace, RunsTheVolumeTests)
{
    if (inNamespace())
        GTEST_SKIP() << "this is the run inside the namespace";
    if (geteuid() != 0)
        GTEST_SKIP() << "mounting images needs root";
    for (const char *tool : {"unshare", "mount", "umount", "mke2fs"}) {
        if (findProgram(QString::fromLatin1(tool)).isEmpty())
            GTEST_SKIP() << tool << " is not installed";
    }
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QString::fromLatin1(kNamespaceVariable), QStringLiteral("1"));
    environment.insert(QString::fromLatin1(kParentNamespaceVariable), mountNamespace());
    // A fixed zone an hour east of UTC (no zone database needed).
    environment.insert(QStringLiteral("TZ"), QStringLiteral("CET-1"));
    const VKProgramRun child =
        run("unshare",
            {"--mount", "--propagation", "private", QCoreApplication::applicationFilePath(),
             "--gtest_filter=MountedVolumes.*"},
            environment);
    if (child.status != 0 && child.output.startsWith("unshare:"))
        GTEST_SKIP() << "no private mount namespace here: " << child.output.constData();
    ASSERT_EQ(child.status, 0) << child.output.constData();
    const qsizetype skipped = child.output.indexOf("mounting is not possible here");
    if (skipped >= 0)
        GTEST_SKIP()
            << child.output.mid(skipped, child.output.indexOf('\n', skipped) - skipped).constData();
    EXPECT_TRUE(child.output.contains("[  PASSED  ]")) << child.output.constData();
}

class MountedVolumes : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        if (!inNamespace())
            return;
        if (mountNamespace() == qEnvironmentVariable(kParentNamespaceVariable)) {
            skipReason = QStringLiteral("not in a mount namespace of its own; nothing is mounted");
            return;
        }
        images = new VKTempDir;
        media = QDir(QStringLiteral("/media")).exists() ? QStringLiteral("/media")
                                                        : QStringLiteral("/mnt");
        // ramfs hides the media root itself from the list of mounted volumes, like a folder.
        const VKProgramRun ramfs = run("mount", {"-t", "ramfs", "vkmedia", media});
        if (ramfs.status != 0) {
            skipReason = QStringLiteral("mounting is not possible here: ") +
                         QString::fromLocal8Bit(ramfs.output).trimmed();
            return;
        }
        QProcessEnvironment fixedTime = QProcessEnvironment::systemEnvironment();
        fixedTime.insert(QStringLiteral("E2FSPROGS_FAKE_TIME"), QString::number(kImageTime));
        // 128-byte inodes have no room for a birth time.
        for (const char *options : {"CARD_A -t ext4", "CARD_B -t ext2 -I 128", "CARD_C -t ext4"}) {
            const QStringList words = QString::fromLatin1(options).split(u' ');
            const QString file = images->writeFile(words[0] + ".img", QByteArray(8 << 20, 0));
            const VKProgramRun mkfs =
                run("mke2fs", QStringList{"-q", "-F", "-L"} + words + QStringList(file), fixedTime);
            if (mkfs.status != 0) {
                skipReason = "mke2fs failed: " + QString::fromLocal8Bit(mkfs.output);
                return;
            }
        }
        for (const char *label : {"CARD_A", "CARD_B"}) {
            const QString error = mountImage(QString::fromLatin1(label), mountPoint(label));
            if (!error.isEmpty()) {
                skipReason = "mounting is not possible here: " + error;
                return;
            }
        }
    }

    void SetUp() override
    {
        if (!inNamespace())
            GTEST_SKIP() << "runs inside a private mount namespace (MountNamespace test)";
        if (!skipReason.isEmpty())
            GTEST_SKIP() << qPrintable(skipReason);
    }

    static QString mountPoint(const char *name) { return media + u'/' + QString::fromLatin1(name); }

    // Mounts the image of `label` at `where`; answers the failure text, or nothing.
    static QString mountImage(const QString &label, const QString &where)
    {
        QDir().mkpath(where);
        const VKProgramRun mount =
            run("mount", {"-o", "loop", images->filePath(label + ".img"), where});
        return mount.status == 0 ? QString() : QString::fromLocal8Bit(mount.output).trimmed();
    }

    static bool unmount(const QString &where) { return run("umount", {where}).status == 0; }

    static inline QString skipReason;
    static inline QString media;
    static inline VKTempDir *images = nullptr; // lives for the process, like the mounts
};

// Mount paths, figures, names, creation dates and identities are compared with what the system
// says in the vkvol test below.
TEST_F(MountedVolumes, MountPathsDevicesIdentitiesAndTheVolumeCache)
{
    // Mount paths follow path components and the order of the mount table.
    const QString a = mountPoint("CARD_A");
    QDir().mkpath(a + "/DCIM");
    QDir().mkpath(mountPoint("CARD_AB") + "/x");
    ASSERT_EQ(mountImage(QStringLiteral("CARD_C"), a + "/NESTED"), QString());
    QDir().mkpath(a + "/NESTED/clips");
    // CARD_AB is another volume; the nested mount comes later in the list, so the first match,
    // CARD_A, answers even for the nested mount path.
    QStringList mountPaths;
    for (const QString &path : {a, a + "/", a + "/DCIM", mountPoint("CARD_AB") + "/x",
                                a + "/NESTED/clips", a + "/NESTED", media})
        mountPaths.append(VKStatInfo::mountPathForPath(path));
    EXPECT_EQ(mountPaths, (QStringList{a, a, a, "/", a, a, "/"}));
    EXPECT_TRUE(VKStatInfo::mountedVolumePaths().contains(a + "/NESTED"));
    EXPECT_TRUE(unmount(a + "/NESTED"));

    // The mount table writes a blank as "\040", also as the last character of a path.
    const QString blanks = mountPoint("TAPE 1 ");
    ASSERT_EQ(mountImage(QStringLiteral("CARD_C"), blanks), QString());
    EXPECT_TRUE(VKStatInfo::mountedVolumePaths().contains(blanks));
    EXPECT_EQ(VKStatInfo::mountPathForPath(blanks), blanks);
    const std::shared_ptr<VKStatInfo> tape = VKStatInfo::statInfoForPath(blanks);
    ASSERT_NE(tape, nullptr);
    EXPECT_EQ(tape->fsType(), u"ext4");
    EXPECT_TRUE(unmount(blanks));

    // Device properties come from the device database.
    const QByteArray device = QStorageInfo(mountPoint("CARD_B")).device();
    struct stat st = {};
    ASSERT_EQ(stat(device.constData(), &st), 0);
    const std::optional<QVariantMap> description =
        VKStatInfo::diskArbitrationInfoForVolumeAtPath(st.st_rdev);
    ASSERT_TRUE(description.has_value());
    EXPECT_EQ(description->value(QStringLiteral("ID_FS_LABEL")), u"CARD_B"_qs);
    EXPECT_EQ(description->value(QStringLiteral("DEVNAME")), QString::fromLatin1(device));
    EXPECT_FALSE(VKStatInfo::diskArbitrationInfoForVolumeAtPath(makedev(7, 250)).has_value());

    // The identity outlives unmounting, and cached values stay when a read fails.
    QDateTime clock = QDateTime::currentDateTimeUtc();
    VKStatInfo::TestingClock testingClock([&clock] { return clock; });
    const std::shared_ptr<VKStatInfo> info = VKStatInfo::statInfoForPath(a);
    ASSERT_NE(info, nullptr);
    const QString identity = info->vessanVolumeID();
    const quint64 total = info->totalBytes();

    ASSERT_TRUE(unmount(a));
    clock = clock.addSecs(11);
    {
        VKLogCapture log;
        EXPECT_EQ(info->totalBytes(), total) << "a failed read keeps the cached value";
        EXPECT_EQ(info->fsType(), u"ext4");
        EXPECT_EQ(log.messages().value(0),
                  QStringLiteral("Could not execute statfs for path ") + a);
        EXPECT_EQ(info->vessanVolumeID(), identity);
        EXPECT_TRUE(log.messages().contains(QStringLiteral("Can't FSPathMakeRef for ") + a));
    }

    // The same card elsewhere, and back at its place, is the same volume.
    const QString elsewhere = mountPoint("CARD_A_AGAIN");
    ASSERT_EQ(mountImage(QStringLiteral("CARD_A"), elsewhere), QString());
    const std::shared_ptr<VKStatInfo> moved = VKStatInfo::statInfoForPath(elsewhere);
    ASSERT_NE(moved, nullptr);
    EXPECT_NE(moved, info);
    EXPECT_EQ(moved->vessanVolumeID(), identity);
    ASSERT_TRUE(unmount(elsewhere));
    ASSERT_EQ(mountImage(QStringLiteral("CARD_A"), a), QString());
    clock = clock.addSecs(11);
    EXPECT_EQ(VKStatInfo::statInfoForPath(a), info);
    EXPECT_EQ(info->vessanVolumeID(), identity);

    // The volume cache matches mount paths as character prefixes, and reloads.
    VKVolumeInfoCache *cache = VKVolumeInfoCache::sharedCache();
    ASSERT_NE(cache, nullptr);
    const std::shared_ptr<VKVolumeInfo> cardA = cache->volumeInfoForPath(a + "/DCIM/C001.mov");
    ASSERT_NE(cardA, nullptr);
    EXPECT_EQ(cardA->path(), a);
    EXPECT_EQ(cardA->name(), u"CARD_A");
    // Characters, not components: CARD_A also answers for CARD_AX.
    EXPECT_EQ(cache->volumeInfoForPath(mountPoint("CARD_AX") + "/clip.mov"), cardA);

    // Mounted after the table was read: found through the automatic reload.
    const QString c = mountPoint("CARD_C");
    ASSERT_FALSE(cache->volumeInfos().contains(c));
    ASSERT_EQ(mountImage(QStringLiteral("CARD_C"), c), QString());
    const std::shared_ptr<VKPath> path = VKPath::pathWithAbsoluteFilePath(c + "/Day1/");
    ASSERT_NE(path, nullptr);
    EXPECT_EQ(path->volumeInfo()->name(), u"CARD_C");
    EXPECT_EQ(path->relativeFilePath(), u"Day1/");
    EXPECT_TRUE(unmount(c));
}

// --- vkvol on the mounted cards, compared byte for byte ---

#ifdef VKVOL_PATH

QString field(const char *name, const QString &value)
{
    return QStringLiteral("  ") + QString::fromLatin1(name).append(u':').leftJustified(15) + u' ' +
           value + u'\n';
}

QString sizeField(const char *name, quint64 bytes)
{
    return field(name, QStringLiteral("%1 (%2 bytes)")
                           .arg(VKFileSize::humanReadableFileSizeStringFromByteCount(bytes))
                           .arg(bytes));
}

TEST_F(MountedVolumes, VkvolPrintsWhatTheSystemSays)
{
    // vkvol inherits the temporary caches folder of this program (VolumeTests.cpp).
    // clang-format off
    const struct { const char *card, *type, *created, *createdId; } cards[] = {
        {"CARD_A", "ext4", "2009-02-14 00:31:30 +0100", "2009-02-14_00:31:30_+0100"},
        {"CARD_B", "ext2", "none", "1904-01-01"}};
    // clang-format on
    QString expected;
    QStringList arguments;
    quint64 totalOfA = 0;
    for (const auto &card : cards) {
        const QString mount = mountPoint(card.card);
        struct statfs st = {};
        ASSERT_EQ(statfs(QFile::encodeName(mount).constData(), &st), 0);
        const quint64 total = quint64(st.f_bsize) * st.f_blocks;
        totalOfA = totalOfA ? totalOfA : total;
        expected += (expected.isEmpty() ? "" : "\n") + mount + "/\n" + field("mount path", mount) +
                    field("type", card.type) +
                    field("display name", QStorageInfo(mount).displayName()) +
                    field("volume name", card.card) + sizeField("total", total) +
                    sizeField("free", quint64(st.f_bsize) * st.f_bfree) +
                    sizeField("available", quint64(st.f_bsize) * st.f_bavail) +
                    field("removable", "no") + field("unmountable", "yes") +
                    field("network share", "no") + field("created", card.created) +
                    field("identity", QStringLiteral("label=%1_created=%2_size=%3_fsType=%4")
                                          .arg(card.card, card.createdId)
                                          .arg(total)
                                          .arg(card.type));
        arguments.append(mount + u'/');
    }
    arguments.append(mountPoint("CARD_A") + "/missing");
    const VKProgramRun vkvol = vkRunProgram(QStringLiteral(VKVOL_PATH), arguments);
    EXPECT_EQ(QString::fromUtf8(vkvol.output), expected);
    EXPECT_EQ(QString::fromUtf8(vkvol.errors),
              QStringLiteral("vkvol: %1/missing: Could not get filesystem statistics for file at "
                             "path %1/missing. File does not exist.\n")
                  .arg(mountPoint("CARD_A")));
    EXPECT_EQ(vkvol.status, 1);

    // JSON: the same figures, numbers as numbers.
    const VKProgramRun json = run(VKVOL_PATH, {"--json", mountPoint("CARD_A")});
    ASSERT_EQ(json.status, 0) << json.output.constData();
    const QJsonObject a = QJsonDocument::fromJson(json.output).array().at(0).toObject();
    EXPECT_EQ(a.value("totalBytes").toInteger(), qint64(totalOfA));
    EXPECT_EQ(a.value("createDate").toString(), u"2009-02-13T23:31:30Z");
    EXPECT_EQ(a.value("isUnmountable"), QJsonValue(true));
}

#endif

} // namespace
