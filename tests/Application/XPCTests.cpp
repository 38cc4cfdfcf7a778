// Inter-process messages: converting values to and from their D-Bus forms, the assertions that
// stop the process, and requests across a private bus to vkmetad and to other services with each
// way a call can fail.
#include "Application/XPCHelpers.h"
#include "Application/XPCRequest.h"
#include "VKPrivateDBus.h"
#include "VKTestSupport.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusVirtualObject>
#include <QFileInfo>
#include <QProcess>
#include <QThread>

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <thread>

namespace {

// An in-process service with its own connection to the private bus: `answer` replies to the calls
// to "/" on a worker thread, so that the main thread can block in a request to it.
class XPCTestService : public QDBusVirtualObject
{
public:
    explicit XPCTestService(std::function<QDBusMessage(const QDBusMessage &)> answer)
        : m_answer(std::move(answer))
    {
        m_thread.start();
        moveToThread(&m_thread);
        m_bus.registerVirtualObject(QStringLiteral("/"), this);
    }
    ~XPCTestService() override
    {
        m_bus.unregisterObject(QStringLiteral("/"));
        QDBusConnection::disconnectFromBus(m_bus.name());
        m_thread.quit();
        m_thread.wait();
    }
    QString introspect(const QString &) const override { return {}; }
    bool handleMessage(const QDBusMessage &call, const QDBusConnection &bus) override
    {
        return bus.send(m_answer(call));
    }
    // The unique name (":1.42") to call the service by.
    QString busName() const { return m_bus.baseService(); }

private:
    std::function<QDBusMessage(const QDBusMessage &)> m_answer;
    QThread m_thread;
    QDBusConnection m_bus = QDBusConnection::connectToBus(
        QString::fromStdString(VKPrivateDBus::shared().address()), QStringLiteral("xpc-service"));
};

// The D-Bus type a converted value travels as.
QString signatureOf(const QVariant &value)
{
    if (value.metaType() == QMetaType::fromType<QDBusArgument>())
        return value.value<QDBusArgument>().currentSignature();
    return QString::fromLatin1(QDBusMetaType::typeToSignature(value.metaType()));
}

QDateTime at(qint64 ms)
{
    return QDateTime::fromMSecsSinceEpoch(ms, Qt::UTC);
}

// Equal in type and value: doubles bit for bit (NaN equals NaN, -0.0 differs from 0.0), and a
// null string differs from an empty one.
::testing::AssertionResult sameValue(const QVariant &actual, const QVariant &expected)
{
    const auto bits = [](const QVariant &value) {
        return std::bit_cast<quint64>(value.toDouble());
    };
    const auto null = [](const QVariant &value) {
        return value.metaType() == QMetaType::fromType<QString>() && value.toString().isNull();
    };
    if (actual.metaType() == expected.metaType() &&
        (expected.metaType() == QMetaType::fromType<double>()
             ? bits(actual) == bits(expected)
             : actual == expected && null(actual) == null(expected)))
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure()
           << actual.metaType().name() << ' ' << actual.toString() << ", expected "
           << expected.metaType().name() << ' ' << expected.toString();
}

TEST(XPCHelpers, ConvertsEveryKindAndReadsItBack)
{
    using L = std::numeric_limits<qint64>;
    const double inf = std::numeric_limits<double>::infinity();
    const int intMin = std::numeric_limits<int>::min();
    const uint uintMax = std::numeric_limits<uint>::max();
    const quint64 uint64Max = std::numeric_limits<quint64>::max();
    const struct
    {
        const char *name;
        QVariant value;   // the library's value
        const char *type; // the D-Bus type it travels as
        QVariant back;    // what it reads back as
    } cases[] = {
        // clang-format off
        {"EmptyString", QStringLiteral(""), "s", QStringLiteral("")},
        {"NullStringIsEmpty", QString(), "s", QStringLiteral("")},
        {"NonAscii", QStringLiteral("Größe 日本 🎬"), "s", QStringLiteral("Größe 日本 🎬")},
        {"EmbeddedNulCutsString", QString::fromUtf16(u"ab\0cd", 5), "s", QStringLiteral("ab")},
        {"BoolFalse", false, "b", false},
        {"CharIsBoolToo", QVariant::fromValue(char(5)), "b", true},
        {"Int32Min", intMin, "x", qlonglong(intMin)},
        {"Int64Min", qlonglong(L::min()), "x", qlonglong(L::min())},
        {"Int64Max", qlonglong(L::max()), "x", qlonglong(L::max())},
        {"LongIsInt64", QVariant::fromValue(long(-3)), "x", qlonglong(-3)},
        {"UInt32Max", uintMax, "t", qulonglong(uintMax)},
        {"UInt64Max", qulonglong(uint64Max), "t", qulonglong(uint64Max)},
        {"Double", 0.1, "d", 0.1},
        {"NaN", std::nan(""), "d", std::nan("")},
        {"MinusInfinity", -inf, "d", -inf},
        {"MinusZero", -0.0, "d", -0.0},
        {"Float", 0.25f, "d", 0.25},
        {"Int16IsDouble", QVariant::fromValue(short(-32768)), "d", -32768.0},
        {"UInt16IsDouble", QVariant::fromValue(ushort(65535)), "d", 65535.0},
        {"UCharIsDouble", QVariant::fromValue(uchar(200)), "d", 200.0},
        {"DateTruncated", at(1900), "(x)", at(1000)},
        {"DateBefore1970TowardZero", at(-1900), "(x)", at(-1000)},
        {"EmptyData", QByteArray(""), "ay", QByteArray("")},
        {"DataWithNul", QByteArray("\0\xff\0", 3), "ay", QByteArray("\0\xff\0", 3)},
        // clang-format on
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const QDBusVariant converted = nsobject_to_xpc_object(c.value);
        EXPECT_EQ(signatureOf(converted.variant()), QLatin1String(c.type));
        EXPECT_TRUE(sameValue(xpc_object_to_nsobject(converted), c.back));
    }
}

TEST(XPCHelpers, TypeCodesDictionariesAndAtKeys)
{
    // The table above covers the codes numbers have; these are the texts no number has.
    for (const char *code : {"qq", "", "Qi"})
        EXPECT_FALSE(number_is_int64(code) || number_is_uint64(code)) << code;
    EXPECT_FALSE(number_is_int64(nullptr) || number_is_uint64(nullptr));
    EXPECT_STREQ(vkNumberTypeCode(QVariant::fromValue(ulong(1))), "Q");
    EXPECT_EQ(vkNumberTypeCode(QStringLiteral("1")), nullptr);

    // Every entry converts by key, into what the message already holds; keys are C strings.
    QVariantMap message{{QStringLiteral("kept"), QStringLiteral("old")}};
    encode_dictionary_as_xpc_object(message, {{QStringLiteral("frames"), 100},
                                              {QStringLiteral("date"), at(61500)},
                                              {QString::fromUtf16(u"cut\0here", 8), true}});
    ASSERT_EQ(message.keys(), (QStringList{"cut", "date", "frames", "kept"}));
    EXPECT_EQ(signatureOf(message.value("date")), QLatin1String("(x)"));
    const QVariantMap decoded = decode_dictionary_from_xpc_object(message);
    EXPECT_TRUE(sameValue(decoded.value("frames"), qlonglong(100)));
    EXPECT_TRUE(sameValue(decoded.value("date"), at(61000)));
    EXPECT_TRUE(sameValue(decoded.value("cut"), true));
    EXPECT_TRUE(sameValue(decoded.value("kept"), QStringLiteral("old")));

    // "@"-keys are looked up on the dictionary itself.
    message.clear();
    encode_dictionary_as_xpc_object(message,
                                    {{"@count", QStringLiteral("shadowed")}, {"b", 1}, {"c", 2}});
    EXPECT_TRUE(sameValue(message.value("@count"), qulonglong(3)));
    const QString raised = vkRaisedBy([&] {
        encode_dictionary_as_xpc_object(message, {{"@size", 1}});
    });
    EXPECT_TRUE(raised.startsWith("NSUnknownKeyException|[<NSDictionary 0x") &&
                raised.endsWith("> valueForUndefinedKey:]: this class is not key value "
                                "coding-compliant for the key size."))
        << raised;
}

TEST(XPCHelpersDeathTest, UnconvertibleValuesStopTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto assertion = [](int line, const char *function, const char *expression) {
        return "(^|\n)Classes/XPCHelpers:" + std::to_string(line) + ": " + function +
               ": Assertion `" + expression + "' failed\\.\n";
    };
    const std::string toBus = assertion(70, "nsobject_to_xpc_object", "false");
    const std::string fromBus = assertion(140, "xpc_object_to_nsobject", "false");
    EXPECT_DEATH((void)nsobject_to_xpc_object(QVariant()), toBus);
    EXPECT_DEATH((void)nsobject_to_xpc_object(QDateTime()), toBus);
    QVariantMap message;
    EXPECT_DEATH(encode_dictionary_as_xpc_object(message, {{"nested", QVariantMap{{"a", 1}}}}),
                 toBus);
    EXPECT_DEATH((void)xpc_object_to_nsobject(QDBusVariant(int(1))), fromBus);
    EXPECT_DEATH((void)xpc_object_to_nsobject(QDBusVariant(QVariant::fromValue(QDBusVariant(1)))),
                 fromBus);
    // Data up to D-Bus's array limit goes; one byte more is refused.
    EXPECT_EQ(signatureOf(nsobject_to_xpc_object(QByteArray(1 << 26, 'x')).variant()), "ay");
    EXPECT_DEATH((void)nsobject_to_xpc_object(QByteArray((1 << 26) + 1, 'x')),
                 assertion(73, "nsobject_to_xpc_object", "value_xpc != NULL"));
    EXPECT_DEATH(
        (void)decode_dictionary_from_xpc_object(
            {{"late", QVariant::fromValue(VKXPCDate{std::numeric_limits<qint64>::max()})}}),
        assertion(143, "xpc_object_to_nsobject", "value != nil"));
}

const QString kFirst = QStringLiteral("error calling metadata XPC service");
const QString kInterrupted = QStringLiteral("premature exit of service, maybe it crashed?");

// Requests across the private bus to vkmetad, which the test starts, and to other services.
class XPCRequestTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
#ifndef VKMETAD_PATH
        GTEST_SKIP() << "vkmetad is not part of this build";
#endif
        if (!VKPrivateDBus::shared().isRunning())
            GTEST_SKIP() << VKPrivateDBus::shared().error();
        qDBusRegisterMetaType<QMap<QString, QString>>();
    }
    ~XPCRequestTest() override
    {
        m_service.kill();
        m_service.waitForFinished(10000);
    }

    // Starts vkmetad owning `m_serviceName` (it dies with its bus, and the bus with the test
    // process); answers whether it serves.
    bool startService(const QStringList &options = {})
    {
#ifdef VKMETAD_PATH
        m_service.start(QStringLiteral(VKMETAD_PATH),
                        QStringList{"--name", m_serviceName} + options);
#endif
        QByteArray out;
        while (!out.contains('\n') && m_service.waitForReadyRead(10000))
            out += m_service.readAllStandardOutput();
        return out.startsWith("vkmetad: serving ");
    }

    QProcess m_service;
    const QString m_serviceName =
        QStringLiteral("org.vessan.Test.Metadata%1")
            .arg(::testing::UnitTest::GetInstance()->current_test_info()->line());
};

// Each sender gets its own whole reply; every parameter travels as its description.
TEST_F(XPCRequestTest, RepliesFollowTheMappingWhenRequestsComeFromSeveralThreads)
{
    ASSERT_TRUE(startService());
    VKTempDir dir;
    const QFileInfo file(dir.writeFile("clip_0002.dpx", "SDPX-frame-2-with-more-bytes"));
    const qint64 seconds = file.lastModified().toSecsSinceEpoch();
    const QVariantMap expected = {
        {"path", file.filePath()},
        {"size", qulonglong(file.size())},
        {"modificationDate", QDateTime::fromSecsSinceEpoch(seconds, Qt::UTC)},
        {"header", QByteArray("SDPX-frame-2-wit")},
        {"ready", QStringLiteral("1")},
        {"ratio", QStringLiteral("1.5")},
    };
    std::vector<std::thread> senders;
    for (int t = 0; t < 4; ++t)
        senders.emplace_back([&, t] {
            for (int tag = t * 100; tag < t * 100 + 5; ++tag) {
                XPCRequest request(m_serviceName);
                request.setParameters(
                    {{"path", file.filePath()}, {"tag", tag}, {"ready", true}, {"ratio", 1.5}});
                const std::optional<QVariantMap> reply = request.send();
                ASSERT_TRUE(reply);
                for (auto it = expected.cbegin(); it != expected.cend(); ++it)
                    EXPECT_TRUE(sameValue(reply->value(it.key()), it.value())) << it.key();
                EXPECT_TRUE(sameValue(reply->value("tag"), QString::number(tag)));
            }
        });
    for (std::thread &sender : senders)
        sender.join();
}

// Every failure answers nothing. Replies of another kind are not logged; every error reply is,
// with the first message, and the service exiting mid-call or being unknown say more.
TEST_F(XPCRequestTest, FailuresAnswerNothingAndAreLoggedByKind)
{
    ASSERT_TRUE(startService({"--exit-mid-call"}));
    XPCTestService other([](const QDBusMessage &call) -> QDBusMessage {
        if (qdbus_cast<QMap<QString, QString>>(call.arguments().at(0)).isEmpty())
            return call.createReply(QStringLiteral("a string"));
        return call.createReply(QVariantList{QVariant::fromValue(QVariantMap()), 2});
    });
    const QString invalid = QStringLiteral("connection is invalid, service %1 not found");
    const struct
    {
        QString service;
        QVariantMap parameters;
        QStringList logged;
    } cases[] = {
        {other.busName(), {}, {}},
        {other.busName(), {{"two", 2}}, {}},
        {"org.freedesktop.DBus", {}, {kFirst}},
        {m_serviceName, {}, {kFirst, kInterrupted}},
        {"org.vessan.Test.Nobody", {}, {kFirst, invalid.arg("org.vessan.Test.Nobody")}},
        {":1.9999", {}, {kFirst, invalid.arg(":1.9999")}},
        {"no such name", {}, {kFirst, invalid.arg("no such name")}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.service + ' ' + c.parameters.keys().join(','));
        VKLogCapture log;
        XPCRequest request(c.service);
        request.setParameters(c.parameters);
        EXPECT_FALSE(request.send());
        EXPECT_EQ(log.messages(), c.logged);
        for (const VKLogEntry &entry : log.entries())
            EXPECT_EQ(std::tuple(entry.level, entry.className, entry.prettyFunctionOutput),
                      std::tuple(VKLogLevel::Error, QString("XPCRequest"),
                                 QString("-[XPCRequest send]")));
    }
}

} // namespace
