#include "Foundation/VKException.h"
#include "Foundation/VKNotificationCenter.h"
#include "Foundation/VKUserDefaults.h"

#include "../support/VKTestSupport.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QSize>
#include <QThread>

#include <thread>

namespace {

class UserDefaults : public ::testing::Test
{
protected:
    void SetUp() override { VKUserDefaults::setStandardUserDefaultsFolder(dir.path()); }
    void TearDown() override { VKUserDefaults::setStandardUserDefaultsFolder(QString()); }
    VKTempDir dir;
};

} // namespace

TEST_F(UserDefaults, RegisteredValuesApplyOnlyWhileNothingIsStored)
{
    auto defaults = VKUserDefaults::standardUserDefaults();
    EXPECT_TRUE(defaults->filePath().startsWith(dir.path()));
    EXPECT_TRUE(defaults->filePath().endsWith(".json"));
    defaults->registerDefaults({{"mode", "fast"}, {"count", 3}});
    defaults->registerDefaults({{"count", 4}});
    EXPECT_EQ(defaults->stringForKey("mode"), "fast");
    EXPECT_EQ(defaults->integerForKey("count"), 4);
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
    defaults->setInteger(9007199254740993LL, "big");
    defaults->setDouble(2.5, "ratio");
    defaults->setObject(QVariantList{"a", 1, true}, "list");
    defaults->setObject(QVariantMap{{"inner", QVariantList{1, 2}}}, "dict");
    defaults->setObject(QStringList{"x", "y"}, "names");
    VKUserDefaults::resetStandardUserDefaults();
    auto again = VKUserDefaults::standardUserDefaults();
    ASSERT_NE(again.get(), defaults.get());
    EXPECT_TRUE(again->boolForKey("flag"));
    EXPECT_EQ(again->objectForKey("flag").typeId(), QMetaType::Bool);
    EXPECT_EQ(again->integerForKey("big"), 9007199254740993LL);
    EXPECT_EQ(again->doubleForKey("ratio"), 2.5);
    EXPECT_EQ(again->arrayForKey("list"), (QVariantList{"a", 1, true}));
    EXPECT_EQ(again->dictionaryForKey("dict").value("inner").toList(), (QVariantList{1, 2}));
    EXPECT_EQ(again->stringArrayForKey("names"), (QStringList{"x", "y"}));
    EXPECT_TRUE(again->stringArrayForKey("list").isEmpty());
    EXPECT_TRUE(again->arrayForKey("flag").isEmpty());
    EXPECT_TRUE(again->dictionaryForKey("list").isEmpty());
    EXPECT_EQ(again->dictionaryRepresentation().size(), 6);
}

TEST_F(UserDefaults, TypedReadsConvertLeniently)
{
    auto defaults = VKUserDefaults::standardUserDefaults();
    const struct
    {
        QVariant stored;
        bool asBool;
        qint64 asInteger;
        double asDouble;
        QString asString;
    } cases[] = {
        {"YES", true, 0, 0.0, "YES"},
        {"no", false, 0, 0.0, "no"},
        {"true", true, 0, 0.0, "true"},
        {" 12.75kg", true, 12, 12.75, " 12.75kg"},
        {"-007", true, -7, -7.0, "-007"},
        {"000", false, 0, 0.0, "000"},
        {"abc", false, 0, 0.0, "abc"},
        {"99999999999999999999", true, std::numeric_limits<qint64>::max(), 1e20,
         "99999999999999999999"},
        {3.9, true, 3, 3.9, "3.9"},
        {0, false, 0, 0.0, "0"},
        {false, false, 0, 0.0, "0"},
        {QVariantList{1}, false, 0, 0.0, QString()},
    };
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
    try {
        defaults->setObject(QVariant::fromValue(QSize(1, 2)), "size");
        FAIL() << "no exception";
    } catch (const VKException &exception) {
        EXPECT_EQ(exception.name(), VKInvalidArgumentException);
        EXPECT_EQ(exception.reason(),
                  "Attempt to insert non-property list object QSize for key size");
    }
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
    ASSERT_EQ(threads.size(), 2);
    EXPECT_EQ(threads[0], writer);
    EXPECT_EQ(threads[1], QThread::currentThreadId());
}
