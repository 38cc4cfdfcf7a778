#include "Foundation/VKException.h"
#include "Foundation/VKNotificationCenter.h"
#include "Foundation/VKUserDefaults.h"

#include "../support/VKTestProcess.h"
#include "../support/VKTestSupport.h"

#include <gtest/gtest.h>

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSize>
#include <QThread>

#include <cmath>
#include <limits>
#include <thread>

namespace {

class UserDefaults : public ::testing::Test
{
protected:
    void SetUp() override { VKUserDefaults::setStandardUserDefaultsFolder(dir.path()); }
    void TearDown() override { VKUserDefaults::setStandardUserDefaultsFolder(QString()); }
    VKTempDir dir;
    const QString probe = vkTestBinaryPath("vkdefaults_probe"); // writes from other processes
};

} // namespace

// The 256 byte values in order; defined with the property-list tests.
QByteArray everyByte();

TEST_F(UserDefaults, RegisteredValuesApplyOnlyWhileNothingIsStored)
{
    auto defaults = VKUserDefaults::standardUserDefaults();
    EXPECT_EQ(defaults->filePath(),
              dir.path() + "/" + VKUserDefaults::applicationIdentifier() + ".json");
    defaults->registerDefaults({{"mode", "fast"}, {"count", 3}});
    defaults->registerDefaults({{"count", 4}});
    EXPECT_EQ(defaults->stringForKey("mode") + QString::number(defaults->integerForKey("count")),
              "fast4");
    defaults->setObject("slow", "mode");
    EXPECT_EQ(defaults->stringForKey("mode"), "slow");
    defaults->removeObjectForKey("mode");
    EXPECT_EQ(defaults->stringForKey("mode"), "fast");
    EXPECT_TRUE(defaults->objectForKey("missing").isNull());
    EXPECT_TRUE(defaults->stringForKey("missing").isNull());
    // The fallback is not written to the store.
    ASSERT_TRUE(defaults->synchronize());
    VKUserDefaults other(defaults->filePath());
    EXPECT_TRUE(other.objectForKey("mode").isNull());
}

TEST_F(UserDefaults, ValuesSurviveANewInstanceWithTheirTypes)
{
    auto defaults = VKUserDefaults::standardUserDefaults();
    defaults->setBool(true, "flag");
    defaults->setDouble(2.5, "ratio");
    defaults->setObject(QVariantList{"a", 1, true}, "list");
    defaults->setObject(QVariantMap{{"inner", QVariantList{1, 2}}}, "dict");
    defaults->setObject(QStringList{"x", "y"}, "names");
    VKUserDefaults::resetStandardUserDefaults();
    auto again = VKUserDefaults::standardUserDefaults();
    ASSERT_NE(again.get(), defaults.get());
    EXPECT_TRUE(again->boolForKey("flag"));
    EXPECT_EQ(again->doubleForKey("ratio"), 2.5);
    EXPECT_EQ(again->arrayForKey("list"), (QVariantList{"a", 1, true}));
    EXPECT_EQ(again->dictionaryForKey("dict").value("inner").toList(), (QVariantList{1, 2}));
    EXPECT_EQ(again->stringArrayForKey("names"), (QStringList{"x", "y"}));
    EXPECT_TRUE(again->stringArrayForKey("list").isEmpty());
    EXPECT_TRUE(again->arrayForKey("flag").isEmpty());
    EXPECT_TRUE(again->dictionaryForKey("list").isEmpty());
    EXPECT_EQ(again->dictionaryRepresentation().size(), 5);
}

TEST_F(UserDefaults, TypedReadsConvertLeniently)
{
    auto defaults = VKUserDefaults::standardUserDefaults();
    // clang-format off
    const struct { QVariant stored; bool asBool; qint64 asInteger; double asDouble; QString asString; } cases[] = {
        {"YES", true, 0, 0.0, "YES"}, {" 12.75kg", true, 12, 12.75, " 12.75kg"}, {"000", false, 0, 0.0, "000"},
        {"99999999999999999999", true, std::numeric_limits<qint64>::max(), 1e20, "99999999999999999999"},
        {3.9, true, 3, 3.9, "3.9"},
        // 2^53 + 1: an integer is not read through a double.
        {9007199254740993LL, true, 9007199254740993LL, 9007199254740992.0, "9007199254740993"},
        {0, false, 0, 0.0, "0"}, {false, false, 0, 0.0, "0"}, {QVariantList{1}, false, 0, 0.0, QString()},
    };
    // clang-format on
    for (const auto &c : cases) {
        defaults->setObject(c.stored, "v");
        SCOPED_TRACE(c.stored.toString().toStdString());
        EXPECT_EQ(defaults->boolForKey("v"), c.asBool);
        EXPECT_EQ(defaults->integerForKey("v"), c.asInteger);
        EXPECT_DOUBLE_EQ(defaults->doubleForKey("v"), c.asDouble);
        EXPECT_EQ(defaults->stringForKey("v"), c.asString);
    }
}

TEST_F(UserDefaults, BadValuesAndKeysAreRefused)
{
    auto defaults = VKUserDefaults::standardUserDefaults();
    defaults->setObject("kept", "k");
    EXPECT_EQ(vkRaisedBy([&] { defaults->setObject(QVariant::fromValue(QSize(1, 2)), "size"); }),
              "NSInvalidArgumentException|Attempt to insert non-property list object QSize for key "
              "size");
    EXPECT_THROW(defaults->setObject(QVariantList{QVariant::fromValue(QSize())}, "nested"),
                 VKException);
    EXPECT_THROW(defaults->setObject(1, ""), VKException);
    defaults->removeObjectForKey(""); // must not wipe the store
    EXPECT_EQ(defaults->stringForKey("k"), "kept");
    defaults->setObject(QVariant(), "k"); // a null value removes
    EXPECT_TRUE(defaults->objectForKey("k").isNull());
}

TEST_F(UserDefaults, AnUnreadableStoreIsKeptAndReported)
{
    const QString path = dir.writeFile("broken/defaults.json", "{ not json");
    VKLogCapture capture;
    {
        VKUserDefaults defaults(path);
        EXPECT_TRUE(defaults.objectForKey("a").isNull());
        defaults.setObject(1, "a");
        defaults.synchronize();
    }
    ASSERT_FALSE(capture.messages().isEmpty());
    EXPECT_TRUE(capture.messages().first().startsWith("Cannot read the user defaults in " + path));
    QFile kept(path + ".unreadable");
    ASSERT_TRUE(kept.open(QIODevice::ReadOnly));
    EXPECT_EQ(kept.readAll(), "{ not json");
}

TEST_F(UserDefaults, ChangesArePostedOnTheChangingThread)
{
    auto defaults = VKUserDefaults::standardUserDefaults();
    auto &center = VKNotificationCenter::defaultCenter();
    int owner = 0;
    QList<Qt::HANDLE> threads;
    center.addObserver(&owner, VKUserDefaultsDidChangeNotification, defaults.get(),
                       [&](const VKNotification &notification) {
                           EXPECT_EQ(notification.object(), defaults.get());
                           // The new value is already readable.
                           EXPECT_EQ(defaults->integerForKey("n"), threads.isEmpty() ? 5 : 0);
                           threads.append(QThread::currentThreadId());
                       });
    Qt::HANDLE writer = nullptr;
    std::thread([&] {
        writer = QThread::currentThreadId();
        defaults->setInteger(5, "n");
    }).join();
    defaults->removeObjectForKey("n");
    center.removeObserver(&owner);
    EXPECT_EQ(VKUserDefaultsDidChangeNotification, "VKUserDefaultsDidChangeNotification");
    EXPECT_EQ(threads, (QList<Qt::HANDLE>{writer, QThread::currentThreadId()}));
}

TEST_F(UserDefaults, ValuesKeepTheirExactTypesThroughTheFile)
{
    const QDateTime date(QDate(2024, 2, 29), QTime(23, 59, 59, 999), Qt::UTC);
    // clang-format off
    const struct { const char *name; QVariant value; QVariant expected /* null: the value */; int typeId; } cases[] = {
        {"integral real stays real", 2.0, {}, QMetaType::Double}, {"real", 0.1, {}, QMetaType::Double},
        {"smallest real", 5e-324, {}, QMetaType::Double},
        {"infinity", -std::numeric_limits<double>::infinity(), {}, QMetaType::Double},
        {"int widens", 7, qlonglong(7), QMetaType::LongLong},
        {"int64 min", std::numeric_limits<qlonglong>::min(), {}, QMetaType::LongLong},
        {"int64 max", std::numeric_limits<qlonglong>::max(), {}, QMetaType::LongLong},
        {"uint64 max", std::numeric_limits<qulonglong>::max(), {}, QMetaType::ULongLong},
        {"bool is no integer", true, {}, QMetaType::Bool},
        {"date keeps milliseconds", date, {}, QMetaType::QDateTime},
        {"local date reads as UTC", date.toOffsetFromUtc(3600), date, QMetaType::QDateTime},
        {"every byte", everyByte(), {}, QMetaType::QByteArray},
        {"text that looks like data", QString("$data"), {}, QMetaType::QString},
        {"dictionary that looks like a tag", QVariantMap{{"$real", 1.5}}, {}, QMetaType::QVariantMap},
        {"keys starting with $", QVariantMap{{"$$x", 1}, {"$", QVariantList{}}}, {}, QMetaType::QVariantMap},
        {"empty dictionary", QVariantMap{}, {}, QMetaType::QVariantMap},
        {"nested", QVariantList{QVariantMap{{"a/b", QByteArray("\0", 1)}}, 1.0}, {}, QMetaType::QVariantList},
    };
    // clang-format on
    auto defaults = VKUserDefaults::standardUserDefaults();
    for (const auto &c : cases)
        defaults->setObject(c.value, QString("values/") + c.name);
    ASSERT_TRUE(defaults->synchronize());
    VKUserDefaults reader(defaults->filePath());
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const QVariant expected = c.expected.isNull() ? c.value : c.expected;
        for (const QVariant &value : {defaults->objectForKey(QString("values/") + c.name),
                                      reader.objectForKey(QString("values/") + c.name)}) {
            EXPECT_EQ(value.typeId(), c.typeId);
            EXPECT_EQ(value, expected);
        }
    }
    const double infinity = reader.doubleForKey("values/infinity");
    EXPECT_TRUE(std::isinf(infinity) && infinity < 0);
    EXPECT_EQ(reader.dataForKey("values/every byte"), everyByte());
    EXPECT_TRUE(reader.dataForKey("values/real").isEmpty());
}

TEST_F(UserDefaults, SynchronizeReportsEachWriteAndRecoversAfterAFailure)
{
    // A plain file where the store's folder should be makes every write fail.
    const QString blocker = dir.writeFile("blocked", "not a folder");
    VKUserDefaults defaults(blocker + "/defaults.json");
    VKLogCapture capture;
    defaults.setObject("value", "k");
    EXPECT_FALSE(defaults.synchronize());
    EXPECT_FALSE(defaults.synchronize());
    ASSERT_FALSE(capture.messages().isEmpty());
    EXPECT_TRUE(capture.messages().first().startsWith("Cannot write the user defaults to " +
                                                      blocker + "/defaults.json: "));
    EXPECT_EQ(defaults.stringForKey("k"), "value"); // still pending, not lost

    ASSERT_TRUE(QFile::remove(blocker));
    EXPECT_TRUE(defaults.synchronize());
    EXPECT_TRUE(defaults.synchronize()); // nothing pending
    EXPECT_EQ(VKUserDefaults(blocker + "/defaults.json").stringForKey("k"), "value");
}

TEST_F(UserDefaults, WritersOfOneFileMergeAndSeeEachOther)
{
    const QString path = dir.filePath("shared.json");
    VKUserDefaults first(path);
    VKUserDefaults second(path);
    EXPECT_TRUE(second.objectForKey("a").isNull()); // loaded before the other writes
    int posts = 0;
    int owner = 0;
    VKNotificationCenter::defaultCenter().addObserver(&owner, VKUserDefaultsDidChangeNotification,
                                                      &second,
                                                      [&](const VKNotification &) { ++posts; });

    first.setObject("from first", "a");
    first.setObject("both", "shared");
    ASSERT_TRUE(first.synchronize());
    EXPECT_EQ(second.stringForKey("a"), "from first"); // read picks up the new file
    EXPECT_EQ(posts, 1);
    EXPECT_EQ(second.stringForKey("a"), "from first");
    EXPECT_EQ(posts, 1); // once per change of the file

    second.setObject("from second", "b");
    second.removeObjectForKey("shared");
    first.setObject("again", "c"); // pending in first while second writes
    ASSERT_TRUE(second.synchronize());
    ASSERT_TRUE(first.synchronize());
    VKNotificationCenter::defaultCenter().removeObserver(&owner);
    const QVariantMap expected{{"a", "from first"}, {"b", "from second"}, {"c", "again"}};
    EXPECT_EQ(VKUserDefaults(path).dictionaryRepresentation(), expected);
    EXPECT_EQ(first.dictionaryRepresentation(), expected);
}

TEST_F(UserDefaults, ThreadsWritingAndReadingOneStoreLoseNothing)
{
    auto defaults = VKUserDefaults::standardUserDefaults();
    VKUserDefaults other(defaults->filePath()); // a second writer of the same file
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            VKUserDefaults &target = t % 2 ? other : *defaults;
            for (int i = 0; i < 25; ++i) {
                target.setInteger(i, QString("t%1/%2").arg(t).arg(i));
                (void)target.dictionaryRepresentation();
                if (i % 5 == 4) {
                    EXPECT_TRUE(target.synchronize());
                }
            }
        });
    }
    for (auto &thread : threads)
        thread.join();
    ASSERT_TRUE(defaults->synchronize());
    ASSERT_TRUE(other.synchronize());
    EXPECT_EQ(VKUserDefaults(defaults->filePath()).dictionaryRepresentation().size(), 100);
}

TEST_F(UserDefaults, NamedDomainsAreFilesBesideTheStandardOne)
{
    auto other = VKUserDefaults::defaultsForDomain("com.example.Other");
    ASSERT_TRUE(other);
    EXPECT_EQ(other->filePath(), dir.path() + "/com.example.Other.json");
    EXPECT_EQ(VKUserDefaults::defaultsForDomain("com.example.Other"), other);
    EXPECT_EQ(VKUserDefaults::defaultsForDomain(VKUserDefaults::applicationIdentifier()),
              VKUserDefaults::standardUserDefaults());
    other->setObject("on", "feature/state");
    ASSERT_TRUE(other->synchronize());
    EXPECT_TRUE(VKUserDefaults::standardUserDefaults()->objectForKey("feature/state").isNull());
    VKUserDefaults::resetStandardUserDefaults();
    EXPECT_EQ(VKUserDefaults::defaultsForDomain("com.example.Other")->stringForKey("feature/state"),
              "on");

    for (const QString &unusable :
         QStringList{"", ".", "..", "../escape", QString::fromUtf8("a\0b", 3)})
        EXPECT_EQ(VKUserDefaults::defaultsForDomain(unusable), nullptr) << unusable;
}

TEST_F(UserDefaults, AKilledWriterLeavesTheOldOrTheNewFile)
{
    const QString path = dir.filePath("churn.json");
    qint64 lastSeen = 0;
    for (int round = 0; round < 4; ++round) {
        SCOPED_TRACE(round);
        QProcess process;
        process.start(probe, {"churn", path});
        ASSERT_TRUE(process.waitForStarted(10000));
        // Kill while the second write of this round is under way.
        QByteArray output;
        while (output.count('\n') < 2 && process.waitForReadyRead(30000))
            output += process.readAllStandardOutput();
        ASSERT_GE(output.count('\n'), 2) << process.readAllStandardError().toStdString();
        process.kill();
        ASSERT_TRUE(process.waitForFinished(10000));

        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        QJsonParseError error;
        const QJsonObject object = QJsonDocument::fromJson(file.readAll(), &error).object();
        ASSERT_EQ(error.error, QJsonParseError::NoError);
        VKLogCapture capture;
        VKUserDefaults reader(path);
        const qint64 sequence = reader.integerForKey("sequence");
        EXPECT_GE(sequence, lastSeen);
        lastSeen = sequence;
        EXPECT_EQ(reader.dataForKey("payload"), QByteArray(512 * 1024, char('a' + sequence % 26)));
        EXPECT_TRUE(capture.messages().isEmpty());
    }
    // A later writer breaks the dead one's lock and clears what it left.
    VKUserDefaults writer(path);
    writer.setBool(true, "after");
    ASSERT_TRUE(writer.synchronize());
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden), QStringList{"churn.json"});
}

TEST_F(UserDefaults, ProcessesWritingDifferentKeysLoseNothing)
{
    const QString path = dir.filePath("two.json");
    QProcess first;
    QProcess second;
    first.start(probe, {"keys", path, "first", "40"});
    second.start(probe, {"keys", path, "second", "40"});
    ASSERT_TRUE(first.waitForFinished(60000));
    ASSERT_TRUE(second.waitForFinished(60000));
    EXPECT_EQ(first.exitCode(), 0);
    EXPECT_EQ(second.exitCode(), 0);
    QVariantMap expected;
    for (int i = 0; i < 40; ++i)
        expected["first" + QString::number(i)] = expected["second" + QString::number(i)] =
            qlonglong(i);
    EXPECT_EQ(VKUserDefaults(path).dictionaryRepresentation(), expected);
}

TEST_F(UserDefaults, PendingValuesAreWrittenWhenTheProcessEnds)
{
    // Returning from main without a loop, and quitting the loop.
    for (const auto &[mode, keys] : QList<std::pair<QString, QStringList>>{
             {"exit", {"set/before exit"}}, {"quit", {"setBeforeQuit", "setInAboutToQuit"}}}) {
        VKTempDir folder;
        ASSERT_EQ(vkRunProgram(probe, {mode, folder.path()}).status, 0) << mode;
        const VKUserDefaults stored(folder.path() + "/com.example.Probe.json");
        EXPECT_EQ(stored.dictionaryRepresentation().keys(), keys) << mode;
    }
}
