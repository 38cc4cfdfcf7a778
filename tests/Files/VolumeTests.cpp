// Volume statistics, application folders, the volume info cache and path records on the root
// volume and temporary folders (the tests on mounted images are in MountedVolumeTests.cpp).
#include "Files/VKPath.h"
#include "Files/VKPathUtility.h"
#include "Files/VKStatInfo.h"
#include "Files/VKVolumeInfoCache.h"
#include "Foundation/VKDate.h"
#include "Foundation/VKSearchPaths.h"
#include "Foundation/VKUserDefaults.h"
#include "VKTestSupport.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QProcess>
#include <QStorageInfo>
#include <QThread>
#include <QtEndian>

#include <gtest/gtest.h>

#include <atomic>

#include <sys/statfs.h>
#include <unistd.h>

namespace {

// The volume info cache makes its folder in the user's caches folder; in tests that is a
// temporary one.
const struct CachesFolder
{
    CachesFolder() { qputenv("XDG_CACHE_HOME", QFile::encodeName(dir.path())); }
    QTemporaryDir dir;
} cachesFolder;

QDateTime utc(int y, int mo, int d, int h = 0, int mi = 0, int s = 0, int ms = 0)
{
    return QDateTime(QDate(y, mo, d), QTime(h, mi, s, ms), Qt::UTC);
}

// A record as the file system stores it, from its three fields.
VKUTCDateTime record(quint16 high, quint32 low, quint16 fraction)
{
    VKUTCDateTime r;
    uchar bytes[8];
    qToLittleEndian(high, bytes);
    qToLittleEndian(low, bytes + 2);
    qToLittleEndian(fraction, bytes + 6);
    std::memcpy(&r, bytes, 8);
    return r;
}

TEST(StatInfoDates, CarbonReferenceDate)
{
    EXPECT_EQ(VKStatInfoCarbonReferenceDate(), -3061152000.0);
    EXPECT_EQ(VKStatInfoCarbonReferenceDate(), -3061152000.0); // the kept value
}

TEST(StatInfoDates, WholeRecordReading)
{
    struct Case
    {
        const char *name;
        VKUTCDateTime record;
        QDateTime expected;
    } cases[] = {
        {"zero is 1904", record(0, 0, 0), utc(1904, 1, 1)},
        {"low seconds only", record(0, 3600, 0), utc(1904, 1, 1, 1)},
        {"a 2009 date", record(0, 3317412690u, 0), utc(2009, 2, 13, 23, 31, 30)},
        {"last second before 2040", record(0, 0xFFFFFFFFu, 0), utc(2040, 2, 6, 6, 28, 15)},
        // After 2040 the high seconds count as 1/65536 s each, not as 2^32 s.
        {"high seconds after 2040", record(1, 5, 0), utc(1904, 1, 1, 0, 0, 5)},
        // A fraction of one half lands 2^47 seconds later instead of half a second.
        {"half-second fraction", record(0, 0, 0x8000), utc(1904, 1, 1).addSecs(qint64(1) << 47)},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        const QDateTime date = VKStatInfoUTCDateTimeToNSDate(&c.record);
        EXPECT_EQ(date.toMSecsSinceEpoch(), c.expected.toMSecsSinceEpoch())
            << qPrintable(date.toString(Qt::ISODateWithMs));
    }
    EXPECT_TRUE(VKStatInfoUTCDateTimeToNSDate(nullptr).isNull());
}

TEST(StatInfoMountPaths, PathsOnTheRootVolumeAndMissingPaths)
{
    if (QStorageInfo(QStringLiteral("/tmp")).rootPath() != u"/")
        GTEST_SKIP() << "/tmp is a volume of its own here";
    VKTempDir dir;
    const QString file = dir.writeFile(QStringLiteral("a/clip.mov"));
    const QString dangling = dir.filePath(QStringLiteral("dangling"));
    ASSERT_EQ(symlink("/nonexistent/target", QFile::encodeName(dangling).constData()), 0);
    if (QStorageInfo(dir.path()).rootPath() != u"/")
        GTEST_SKIP() << "the temporary folder is not on the root volume";

    struct Case
    {
        const char *name;
        QString path;
        QString mountPath;
    } cases[] = {
        {"root", QStringLiteral("/"), QStringLiteral("/")},
        {"file on root", file, QStringLiteral("/")},
        {"folder with trailing slash", dir.path() + u'/', QStringLiteral("/")},
        {"dangling link exists", dangling, QStringLiteral("/")},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        VKError error;
        EXPECT_EQ(VKStatInfo::mountPathForPath(c.path, &error), c.mountPath);
        EXPECT_TRUE(error.isNull());
    }

    const QString missing = dir.filePath(QStringLiteral("missing/x"));
    VKError error;
    EXPECT_TRUE(VKStatInfo::mountPathForPath(missing, &error).isNull());
    EXPECT_EQ(error.domain(), VQErrorDomainVessanUtilities);
    EXPECT_EQ(error.code(), 0);
    EXPECT_EQ(error.localizedDescription(),
              QStringLiteral("Could not get filesystem statistics for file at path %1. File does "
                             "not exist.")
                  .arg(missing));
    EXPECT_EQ(VKStatInfo::statInfoForPath(missing), nullptr);
    EXPECT_EQ(VKStatInfo::statInfoForPath(file), VKStatInfo::statInfoForPath(QStringLiteral("/")));
    EXPECT_EQ(VKStatInfo::cachedStatInfoForMountPath(QStringLiteral("/")),
              VKStatInfo::statInfoForPath(file));
    EXPECT_EQ(VKStatInfo::cachedStatInfoForMountPath(QString()), nullptr);
}

TEST(StatInfoMountPaths, OnlyMountPathsMakeObjects)
{
    VKTempDir dir;
    VKLogCapture log;
    EXPECT_EQ(VKStatInfo::statInfoWithMountPath(dir.path()), nullptr);
    EXPECT_TRUE(log.messages().isEmpty()) << "no error pointer, no log";

    VKError error;
    EXPECT_EQ(VKStatInfo::statInfoWithMountPath(dir.path(), &error), nullptr);
    const QString reason =
        QStringLiteral("Could not init statistics for file at path %1. Path is no mount path.")
            .arg(dir.path());
    EXPECT_EQ(error.localizedDescription(), reason);
    ASSERT_EQ(log.entries().size(), 1);
    EXPECT_EQ(log.entries()[0].message, reason);
    EXPECT_EQ(log.entries()[0].level, VKLogLevel::Error);

    const std::shared_ptr<VKStatInfo> fresh =
        VKStatInfo::statInfoWithMountPath(QStringLiteral("/"));
    ASSERT_NE(fresh, nullptr);
    EXPECT_NE(fresh, VKStatInfo::statInfoForPath(QStringLiteral("/"))) << "not registered";
}

TEST(StatInfoRootVolume, FiguresComeFromStatfsAndTheMountTable)
{
    const std::shared_ptr<VKStatInfo> info = VKStatInfo::statInfoWithMountPath(QStringLiteral("/"));
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->cachedTotalBytes(), 0u) << "nothing read before the first getter";
    EXPECT_TRUE(info->lastUpdateForStatfs().isNull());

    struct statfs st
    {
    };
    ASSERT_EQ(statfs("/", &st), 0);
    EXPECT_EQ(info->totalBytes(), quint64(st.f_bsize) * st.f_blocks);
    EXPECT_EQ(info->fsType(), QString::fromLatin1(QStorageInfo::root().fileSystemType()));
    EXPECT_EQ(info->displayName(), QStorageInfo::root().displayName());
    EXPECT_FALSE(info->lastUpdateForStatfs().isNull());
    EXPECT_FALSE(info->isNetworkShare());
    EXPECT_FALSE(info->volumeName().isEmpty());

    const QString id = info->vessanVolumeID();
    EXPECT_TRUE(id.startsWith(QStringLiteral("label=%1_created=").arg(info->volumeName())))
        << qPrintable(id);
    EXPECT_TRUE(id.endsWith(
        QStringLiteral("_size=%1_fsType=%2").arg(info->totalBytes()).arg(info->fsType())))
        << qPrintable(id);
}

TEST(StatInfoRootVolume, EachGroupIsReadAtMostEveryTenSeconds)
{
    QDateTime clock = utc(2030, 5, 1, 12);
    VKStatInfo::TestingClock testingClock([&clock] { return clock; });
    const std::shared_ptr<VKStatInfo> info = VKStatInfo::statInfoWithMountPath(QStringLiteral("/"));
    ASSERT_NE(info, nullptr);

    // Each getter reads its own group only: a read stamps the group with the clock's time.
    struct Case
    {
        const char *name;
        std::function<void()> getter;
        std::function<QDateTime()> stamp;
    } groups[] = {
        {"statfs", [&] { info->freeBytes(); }, [&] { return info->lastUpdateForStatfs(); }},
        {"display name", [&] { info->displayName(); },
         [&] { return info->lastUpdateForDisplayName(); }},
        {"volume info", [&] { info->isRemovable(); },
         [&] { return info->lastUpdateForFSVolumeInfo(); }},
        {"volume icon", [&] { info->volumeIcon(); },
         [&] { return info->lastUpdateForVolumeIcon(); }},
    };
    for (const Case &group : groups) {
        SCOPED_TRACE(group.name);
        const QDateTime start = clock;
        EXPECT_TRUE(group.stamp().isNull() || group.stamp() == start);
        group.getter();
        EXPECT_EQ(group.stamp(), start);
        clock = start.addMSecs(10000); // exactly 10 s old: still fresh
        group.getter();
        EXPECT_EQ(group.stamp(), start);
        clock = start.addMSecs(10001);
        group.getter();
        EXPECT_EQ(group.stamp(), clock);
        clock = clock.addSecs(60);
    }
}

TEST(StatInfoRootVolume, NetworkSharesMayLeaveTheirDateOut)
{
    VKTempDir dir;
    VKUserDefaults::setStandardUserDefaultsFolder(dir.path());
    const std::shared_ptr<VKStatInfo> info = VKStatInfo::statInfoForPath(QStringLiteral("/"));
    ASSERT_NE(info, nullptr);
    VKUserDefaults::standardUserDefaults()->setBool(
        true, QStringLiteral("dontUseCreationDateToIdentifyNetworkShares"));
    // The rule is for shares only: the root volume keeps its date.
    EXPECT_FALSE(info->vessanVolumeID().contains(QStringLiteral("_created=none_")));
    VKUserDefaults::setStandardUserDefaultsFolder(QString());
    const struct
    {
        const char *type;
        bool network;
    } types[] = {{"cifs", true},  {"smb3", true},  {"nfs4", true}, {"fuse.sshfs", true},
                 {"ext4", false}, {"vfat", false}, {"fuse", false}};
    for (const auto &t : types)
        EXPECT_EQ(VKStatInfo::isNetworkFileSystemType(QString::fromLatin1(t.type)), t.network)
            << t.type;
}

// --- Application folders ---

TEST(PathUtility, FolderLayout)
{
    VKTempDir dir;
    VKSearchPaths::TestingRoot root(dir.path());
    const QString support = dir.path() + QStringLiteral("/home/.local/share/Vessan/");
    struct Case
    {
        const char *name;
        std::function<QString()> folder;
        QString expected;
    } cases[] = {
        {"support", &VKPathUtility::applicationSupportFolder, support + "Demo"},
        {"caches", &VKPathUtility::cachesFolder, support + "Demo"},
        {"database", &VKPathUtility::libraryDataBasePath, support + "Demo/Demo.vddb"},
        {"backup", &VKPathUtility::databaseBackupFolder, support + "Demo/Backup"},
        {"logos", &VKPathUtility::logosFolder, support + "Demo/Logos"},
        {"thumbnails", &VKPathUtility::thumbnailsFolder, support + "Demo/Thumbnails"},
        {"volume icons", &VKPathUtility::volumeIconCachesFolder, support + "Demo/VolumeIcons"},
        {"cached image",
         [] { return VKPathUtility::cacheImagePathWithVolumeUUID(QStringLiteral("1234-AB")); },
         support + "Demo/VolumeIcons/1234-AB.jpg"},
    };
    EXPECT_EQ(VKPathUtility::libraryNameFromCurrentApplication(), u"VessanApplication");
    VKPathUtility::setLibraryNameFunction([] { return QStringLiteral("Demo"); });
    for (const Case &c : cases)
        EXPECT_EQ(c.folder(), c.expected) << c.name;
    VKPathUtility::setLibraryNameFunction({});
    EXPECT_EQ(VKPathUtility::libraryDataBasePath(),
              support + "VessanApplication/VessanApplication.vddb");

    VKPathUtility::createBasicApplicationsPaths();
    for (const QString &folder :
         {support + "VessanApplication/Thumbnails", support + "VessanApplication/Logos"})
        EXPECT_TRUE(QFileInfo(folder).isDir()) << qPrintable(folder);
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
    const QString file = dir.writeFile(QStringLiteral("file"), "data");
    const QString blocker = dir.writeFile(QStringLiteral("blocker"));
    struct Case
    {
        const char *name;
        QString path;
        bool madeFolder;
        QString terminated;
    } cases[] = {
        {"existing folder left alone", existing, true, {}},
        {"file replaced by a folder", file, true, {}},
        {"missing parents made", dir.filePath(QStringLiteral("a/b/c")), true, {}},
        {"below a file", blocker + QStringLiteral("/sub/x"), false,
         QStringLiteral("Could create directory at path %1/sub/x|Not a directory").arg(blocker)},
        {"cannot remove", QStringLiteral("/proc/self/status"), false,
         QStringLiteral("Could not remove item at path /proc/self/status|Operation not "
                        "permitted")},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        terminated.clear();
        log.clear();
        VKPathUtility::createDirectoryAtPath(c.path);
        EXPECT_EQ(QFileInfo(c.path).isDir(), c.madeFolder);
        if (c.terminated.isEmpty()) {
            EXPECT_TRUE(terminated.isEmpty());
            EXPECT_TRUE(log.messages().isEmpty());
        } else {
            EXPECT_EQ(terminated, QStringList{c.terminated});
            EXPECT_EQ(log.messages(), QStringList{c.terminated.section(u'|', 0, 0)});
        }
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
    QProcess child;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("VK_TEST_TERMINATE_CHILD"), QStringLiteral("1"));
    child.setProcessEnvironment(env);
    child.start(QCoreApplication::applicationFilePath(),
                {QStringLiteral("--gtest_filter=PathUtility.FailureEndsTheProcess")});
    ASSERT_TRUE(child.waitForFinished(30000));
    EXPECT_EQ(child.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(child.exitCode(), 1);
    const QByteArray err = child.readAllStandardError();
    EXPECT_TRUE(err.endsWith("Could not remove item at path /proc/self/status (Operation not "
                             "permitted)\n"))
        << err.constData();
    EXPECT_FALSE(child.readAllStandardOutput().contains("still running"));
}

// --- Volume info cache and path records ---

TEST(VolumeInfoCache, PathsOutsideMediaRootsBelongToTheRootVolume)
{
    VKVolumeInfoCache *cache = VKVolumeInfoCache::sharedCache();
    ASSERT_NE(cache, nullptr);
    EXPECT_EQ(VKVolumeInfoCache::sharedCache(), cache);
    EXPECT_TRUE(QFileInfo(cache->cachesFolder()).isDir());
    EXPECT_TRUE(cache->cachesFolder().endsWith(u"/Vessan/Utilities/VolumeIcons"));
    const std::shared_ptr<VKVolumeInfo> root = cache->volumeInfoForPath(QStringLiteral("/"));
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->path(), u"/");
    EXPECT_EQ(root->name(), VKStatInfo::statInfoForPath(QStringLiteral("/"))->volumeName());
    for (const char *path : {"/home/ann/a.mov", "/does/not/exist", "relative/path", "/Volume"})
        EXPECT_EQ(cache->volumeInfoForPath(QString::fromLatin1(path)), root) << path;
    for (const char *path :
         {"/media/VK_NOT_MOUNTED/x", "/Volumes/VK_NOT_MOUNTED/x", "/run/media/ann/VK_NOT_MOUNTED",
          "/mnt/VK_NOT_MOUNTED"})
        EXPECT_EQ(cache->volumeInfoForPath(QString::fromLatin1(path)), nullptr) << path;
}

TEST(VolumeInfoCache, LookupsAndReloadsFromSeveralThreads)
{
    VKVolumeInfoCache *cache = VKVolumeInfoCache::sharedCache();
    ASSERT_NE(cache, nullptr);
    std::atomic<int> wrong{0};
    QList<QThread *> threads;
    for (int t = 0; t < 4; ++t) {
        threads.append(QThread::create([cache, t, &wrong] {
            for (int i = 0; i < 100; ++i) {
                if (t == 0 && i % 10 == 0)
                    cache->reloadVolumeInfos();
                const std::shared_ptr<VKVolumeInfo> info =
                    cache->volumeInfoForPath(QStringLiteral("/home/ann/clip.mov"));
                if (!info || info->path() != u"/")
                    ++wrong;
            }
        }));
        threads.last()->start();
    }
    for (QThread *thread : threads) {
        EXPECT_TRUE(thread->wait(60000));
        delete thread;
    }
    EXPECT_EQ(wrong.load(), 0);
}

TEST(VolumeInfoCache, PathRecords)
{
    const std::shared_ptr<VKVolumeInfo> root =
        VKVolumeInfoCache::sharedCache()->volumeInfoForPath(QStringLiteral("/"));
    struct Case
    {
        const char *name;
        QString path;
        QString relative;
        bool isDirectory;
        QString absolute;
    } cases[] = {
        {"file", QStringLiteral("/home/ann/a.mov"), QStringLiteral("home/ann/a.mov"), false,
         QStringLiteral("/home/ann/a.mov")},
        {"folder", QStringLiteral("/home/ann/DCIM/"), QStringLiteral("home/ann/DCIM/"), true,
         QStringLiteral("/home/ann/DCIM")},
        {"root", QStringLiteral("/"), QStringLiteral(""), true, QStringLiteral("/")},
        {"relative text", QStringLiteral("clip.mov"), QString(), false, QStringLiteral("/")},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        const std::shared_ptr<VKPath> path = VKPath::pathWithAbsoluteFilePath(c.path);
        ASSERT_NE(path, nullptr);
        EXPECT_EQ(path->volumeInfo(), root);
        EXPECT_EQ(path->relativeFilePath(), c.relative);
        EXPECT_EQ(path->relativeFilePath().isNull(), c.relative.isNull());
        EXPECT_EQ(path->isDirectory(), c.isDirectory);
        EXPECT_EQ(path->absoluteFilePath(), c.absolute);
    }
    EXPECT_EQ(VKPath::pathWithAbsoluteFilePath(QStringLiteral("/media/VK_NOT_MOUNTED/a")), nullptr);

    const auto on = [&](const char *relative) {
        return VKPath::pathWithVolumeInfo(root, QString::fromLatin1(relative), false);
    };
    EXPECT_EQ(on("a/B")->compare(*on("a/a")), -1) << "upper case sorts first";
    EXPECT_EQ(on("a/b")->compare(*on("a/b/")), 0) << "both are /a/b";
    EXPECT_EQ(on("a10")->compare(*on("a9")), -1) << "no numeric order";
    EXPECT_EQ(on("b")->compare(*on("a")), 1);
}

} // namespace
