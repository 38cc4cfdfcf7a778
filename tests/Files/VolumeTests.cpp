// Volume statistics, application folders, the volume info cache and path records on the root
// volume and temporary folders (the tests on mounted images are in MountedVolumeTests.cpp).
#include "Files/VKPath.h"
#include "Files/VKPathUtility.h"
#include "Files/VKStatInfo.h"
#include "Files/VKVolumeInfoCache.h"
#include "Foundation/VKSearchPaths.h"
#include "VKTestProcess.h"
#include "VKTestSupport.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QStorageInfo>
#include <QtEndian>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <tuple>

#include <unistd.h>

namespace {

// The volume info cache makes its folder in the user's caches folder, a temporary one here.
const QTemporaryDir cachesFolder;
[[maybe_unused]] const bool cachesFolderSet =
    qputenv("XDG_CACHE_HOME", QFile::encodeName(cachesFolder.path()));

QDateTime utc(int y, int mo, int d, int h = 0, int mi = 0, int s = 0)
{
    return QDateTime(QDate(y, mo, d), QTime(h, mi, s), Qt::UTC);
}

const QString kRoot = QStringLiteral("/");

TEST(StatInfoDates, WholeRecordReading)
{
    // A record as the file system stores it: high seconds, low seconds, fraction.
    const auto record = [](quint16 high, quint32 low, quint16 fraction) {
        const VKUTCDateTime r{qToLittleEndian(high), qToLittleEndian(low),
                              qToLittleEndian(fraction)};
        return VKStatInfoUTCDateTimeToNSDate(&r);
    };
    // After 2040 the high seconds count as 1/65536 s each, not as 2^32 s; a fraction of one half
    // lands 2^47 seconds later instead of half a second.
    // clang-format off
    const struct { quint16 high; quint32 low; quint16 fraction; QDateTime date; } cases[] = {
        {0, 0, 0, utc(1904, 1, 1)}, {0, 0xFFFFFFFFu, 0, utc(2040, 2, 6, 6, 28, 15)},
        {1, 5, 0, utc(1904, 1, 1, 0, 0, 5)},
        {0, 0, 0x8000, utc(1904, 1, 1).addSecs(qint64(1) << 47)},
    };
    // clang-format on
    for (const auto &c : cases)
        EXPECT_EQ(record(c.high, c.low, c.fraction), c.date) << c.high << " " << c.low;
    EXPECT_TRUE(VKStatInfoUTCDateTimeToNSDate(nullptr).isNull());
}

TEST(StatInfoMountPaths, PathsOnTheRootVolumeAndMissingPaths)
{
    VKTempDir dir;
    if (QStorageInfo(dir.path()).rootPath() != kRoot)
        GTEST_SKIP() << "the temporary folder is not on the root volume";
    const QString file = dir.writeFile(QStringLiteral("a/clip.mov"));
    const QString dangling = dir.filePath(QStringLiteral("dangling"));
    ASSERT_EQ(symlink("/nonexistent/target", QFile::encodeName(dangling).constData()), 0);
    for (const QString &path : {kRoot, file, dir.path() + u'/', dangling}) {
        VKError error;
        EXPECT_EQ(VKStatInfo::mountPathForPath(path, &error), kRoot) << path;
        EXPECT_TRUE(error.isNull());
    }
    const QString missing = dir.filePath(QStringLiteral("missing/x"));
    VKError error;
    EXPECT_TRUE(VKStatInfo::mountPathForPath(missing, &error).isNull());
    EXPECT_EQ(error.description(),
              "Error Domain=VQErrorDomainVessanUtilities Code=0 \"Could not get "
              "filesystem statistics for file at path " +
                  missing + ". File does not exist.\"");
    EXPECT_EQ(VKStatInfo::statInfoForPath(missing), nullptr);
    EXPECT_EQ(VKStatInfo::statInfoForPath(file), VKStatInfo::statInfoForPath(kRoot));
    EXPECT_EQ(VKStatInfo::cachedStatInfoForMountPath(kRoot), VKStatInfo::statInfoForPath(file));
    EXPECT_EQ(VKStatInfo::cachedStatInfoForMountPath(QString()), nullptr);

    // Only mount paths make objects; without an error pointer nothing is logged.
    VKLogCapture log;
    EXPECT_EQ(VKStatInfo::statInfoWithMountPath(dir.path()), nullptr);
    EXPECT_TRUE(log.messages().isEmpty());
    EXPECT_EQ(VKStatInfo::statInfoWithMountPath(dir.path(), &error), nullptr);
    const QString reason =
        "Could not init statistics for file at path " + dir.path() + ". Path is no mount path.";
    EXPECT_EQ(error.localizedDescription(), reason);
    EXPECT_EQ(log.messages(), QStringList{reason});
    const std::shared_ptr<VKStatInfo> fresh = VKStatInfo::statInfoWithMountPath(kRoot);
    ASSERT_NE(fresh, nullptr);
    EXPECT_NE(fresh, VKStatInfo::statInfoForPath(kRoot)) << "not registered";
}

// The figures themselves are compared with statfs on mounted images (MountedVolumeTests.cpp).
TEST(StatInfoRootVolume, IdentityAndNetworkTypes)
{
    const std::shared_ptr<VKStatInfo> info = VKStatInfo::statInfoWithMountPath(kRoot);
    ASSERT_NE(info, nullptr);
    const QString id = info->vessanVolumeID();
    EXPECT_TRUE(id.startsWith("label=" + info->volumeName() + "_created=")) << id;
    EXPECT_TRUE(id.endsWith(
        QStringLiteral("_size=%1_fsType=%2").arg(info->totalBytes()).arg(info->fsType())))
        << id;
    QStringList network;
    for (const QString &type :
         QStringList{"cifs", "smb3", "nfs4", "fuse.sshfs", "ext4", "vfat", "fuse"})
        if (VKStatInfo::isNetworkFileSystemType(type))
            network << type;
    EXPECT_EQ(network, (QStringList{"cifs", "smb3", "nfs4", "fuse.sshfs"}));
}

TEST(StatInfoRootVolume, EachGroupIsReadAtMostEveryTenSeconds)
{
    QDateTime clock = utc(2030, 5, 1, 12);
    VKStatInfo::TestingClock testingClock([&clock] { return clock; });
    const std::shared_ptr<VKStatInfo> info = VKStatInfo::statInfoWithMountPath(kRoot);
    ASSERT_NE(info, nullptr);
    // Each getter reads its own group only: a read stamps the group with the clock's time.
    // clang-format off
    const struct { std::function<void()> getter; std::function<QDateTime()> stamp; } groups[] = {
        {[&] { info->freeBytes(); }, [&] { return info->lastUpdateForStatfs(); }},
        {[&] { info->displayName(); }, [&] { return info->lastUpdateForDisplayName(); }},
        {[&] { info->isRemovable(); }, [&] { return info->lastUpdateForFSVolumeInfo(); }},
        {[&] { info->volumeIcon(); }, [&] { return info->lastUpdateForVolumeIcon(); }},
    };
    // clang-format on
    for (const auto &group : groups) {
        const QDateTime start = clock;
        QStringList stamps{group.stamp().isNull() ? "unread" : "read"};
        for (const int age : {0, 10000, 10001}) { // exactly 10 s old is still fresh
            clock = start.addMSecs(age);
            group.getter();
            stamps << QString::number(start.msecsTo(group.stamp()));
        }
        EXPECT_EQ(stamps, (QStringList{"unread", "0", "0", "10001"}));
        clock = clock.addSecs(60);
    }
}

TEST(PathUtility, FolderLayout)
{
    VKTempDir dir;
    VKSearchPaths::TestingRoot root(dir.path());
    const QString support = dir.path() + QStringLiteral("/home/.local/share/Vessan/");
    EXPECT_EQ(VKPathUtility::libraryNameFromCurrentApplication(), u"VessanApplication");
    VKPathUtility::setLibraryNameFunction([] { return QStringLiteral("Demo"); });
    using P = VKPathUtility;
    QStringList folders = {P::cacheImagePathWithVolumeUUID("1234-AB")};
    for (const auto folder : {&P::applicationSupportFolder, &P::cachesFolder,
                              &P::libraryDataBasePath, &P::databaseBackupFolder, &P::logosFolder,
                              &P::thumbnailsFolder, &P::volumeIconCachesFolder})
        folders.append(folder());
    EXPECT_EQ(
        folders.replaceInStrings(support, "*/"),
        (QStringList{"*/Demo/VolumeIcons/1234-AB.jpg", "*/Demo", "*/Demo", "*/Demo/Demo.vddb",
                     "*/Demo/Backup", "*/Demo/Logos", "*/Demo/Thumbnails", "*/Demo/VolumeIcons"}));
    VKPathUtility::setLibraryNameFunction({});
    VKPathUtility::createBasicApplicationsPaths();
    for (const char *folder : {"Thumbnails", "Logos"})
        EXPECT_TRUE(QFileInfo(support + "VessanApplication/" + folder).isDir()) << folder;
}

TEST(PathUtility, CreateDirectoryAtPath)
{
    VKTempDir dir;
    QStringList terminated;
    const auto previous = VKPathUtility::setTerminateFunction(
        [&terminated](const QString &message, const VKError &error) {
            terminated.append(message + u'|' + error.localizedDescription());
        });
    VKLogCapture log;
    const QString existing = dir.makeDir(QStringLiteral("existing"));
    const QString marker = dir.writeFile(QStringLiteral("existing/keep"));
    const QString blocked = dir.writeFile(QStringLiteral("blocker")) + "/sub/x";
    // clang-format off
    const struct { QString path; bool madeFolder; QString terminated; } cases[] = {
        {existing, true, {}}, {dir.writeFile("file", "data"), true, {}}, // replaced by a folder
        {dir.filePath("a/b/c"), true, {}},
        {blocked, false, "Could create directory at path " + blocked + "|Not a directory"},
        {"/proc/self/status", false,
         "Could not remove item at path /proc/self/status|Operation not permitted"},
    };
    // clang-format on
    for (const auto &c : cases) {
        terminated.clear();
        log.clear();
        VKPathUtility::createDirectoryAtPath(c.path);
        EXPECT_EQ(QFileInfo(c.path).isDir(), c.madeFolder) << c.path;
        // The message is logged, then the terminate function gets it with the reason.
        const QString logged = c.terminated.section(u'|', 0, 0);
        EXPECT_EQ(log.messages() + terminated,
                  c.terminated.isEmpty() ? QStringList() : (QStringList{logged, c.terminated}));
    }
    EXPECT_TRUE(QFileInfo::exists(marker));
    VKPathUtility::setTerminateFunction(previous);
}

// The default terminate function really ends the process; a child run of this binary checks.
TEST(PathUtility, FailureEndsTheProcess)
{
    if (qEnvironmentVariableIsSet("VK_TEST_TERMINATE_CHILD")) {
        VKPathUtility::createDirectoryAtPath(QStringLiteral("/proc/self/status"));
        ADD_FAILURE() << "still running";
        return;
    }
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("VK_TEST_TERMINATE_CHILD"), QStringLiteral("1"));
    const VKProgramRun child =
        vkRunProgram(QCoreApplication::applicationFilePath(),
                     {QStringLiteral("--gtest_filter=PathUtility.FailureEndsTheProcess")}, env);
    EXPECT_EQ(child.status, 1);
    EXPECT_TRUE(child.errors.endsWith("Could not remove item at path /proc/self/status (Operation "
                                      "not permitted)\n"))
        << child.errors.constData();
    EXPECT_FALSE(child.output.contains("still running"));
}

TEST(VolumeInfoCache, RootVolumeRecordsMediaRootsAndThreads)
{
    VKVolumeInfoCache *cache = VKVolumeInfoCache::sharedCache();
    ASSERT_NE(cache, nullptr);
    EXPECT_TRUE(QFileInfo(cachesFolder.path() + "/Vessan/Utilities/VolumeIcons").isDir());
    const std::shared_ptr<VKVolumeInfo> root = cache->volumeInfoForPath(kRoot);
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->path(), kRoot);
    EXPECT_EQ(root->name(), VKStatInfo::statInfoForPath(kRoot)->volumeName());
    for (const char *path : {"/home/ann/a.mov", "relative/path", "/Volume"})
        EXPECT_EQ(cache->volumeInfoForPath(QString::fromLatin1(path)), root) << path;

    // Path records on the root volume: "relative|directory|absolute", a null relative path "-".
    // clang-format off
    const struct { const char *path, *record; } cases[] = {
        {"/home/ann/a.mov", "home/ann/a.mov|0|/home/ann/a.mov"},
        {"/home/ann/DCIM/", "home/ann/DCIM/|1|/home/ann/DCIM"},
        {"/", "|1|/"}, {"clip.mov", "-|0|/"},
    };
    // clang-format on
    for (const auto &c : cases) {
        const std::shared_ptr<VKPath> path = VKPath::pathWithAbsoluteFilePath(c.path);
        ASSERT_NE(path, nullptr) << c.path;
        EXPECT_EQ(path->volumeInfo(), root) << c.path;
        const QString relative = path->relativeFilePath();
        EXPECT_EQ((relative.isNull() ? "-" : relative) + u'|' +
                      QString::number(path->isDirectory()) + u'|' + path->absoluteFilePath(),
                  c.record);
    }
    // Upper case sorts first, a trailing slash makes no other path, no numeric order.
    const auto on = [&](const char *relative) {
        return VKPath::pathWithVolumeInfo(root, QString::fromLatin1(relative), false);
    };
    for (const auto &[a, b, order] :
         std::initializer_list<std::tuple<const char *, const char *, int>>{
             {"a/B", "a/a", -1}, {"a/b", "a/b/", 0}, {"a10", "a9", -1}, {"b", "a", 1}})
        EXPECT_EQ(on(a)->compare(*on(b)), order) << a << " " << b;

    // Under a media root only a mounted volume answers (after reloading the table, which makes
    // new objects).
    for (const char *path : {"/media/VK_NOT_MOUNTED/x", "/Volumes/VK_NOT_MOUNTED/x",
                             "/run/media/ann/VK_NOT_MOUNTED", "/mnt/VK_NOT_MOUNTED"})
        EXPECT_EQ(cache->volumeInfoForPath(QString::fromLatin1(path)), nullptr) << path;
    EXPECT_EQ(VKPath::pathWithAbsoluteFilePath(QStringLiteral("/media/VK_NOT_MOUNTED/a")), nullptr);

    // Lookups while another thread reloads the table.
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([cache, t, &wrong] {
            for (int i = 0; i < 100; ++i) {
                if (t == 0 && i % 10 == 0)
                    cache->reloadVolumeInfos();
                const auto info = cache->volumeInfoForPath(QStringLiteral("/home/ann/clip.mov"));
                if (!info || info->path() != u"/")
                    ++wrong;
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(wrong.load(), 0);
}

} // namespace
