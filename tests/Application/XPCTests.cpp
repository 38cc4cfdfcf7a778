// Inter-process messages: values to and from their D-Bus forms, the assertions that stop the
// process, and requests across a private bus to vkmetad and other services, failing every way.
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

#include <gtest/gtest.h>

#include <bit>
#include <climits>
#include <future>
#include <limits>
#include <thread>

using namespace std::chrono_literals;

namespace {

// Answers every call to "/" with a dictionary and a number, which is no reply a request knows.
struct TwoValues : QDBusVirtualObject
{
    QString introspect(const QString &) const override { return {}; }
    bool handleMessage(const QDBusMessage &call, const QDBusConnection &bus) override
    {
        return bus.send(call.createReply(QVariantList{QVariant::fromValue(QVariantMap()), 2}));
    }
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
// null value differs from an empty one.
::testing::AssertionResult sameValue(const QVariant &actual, const QVariant &expected)
{
    const auto exact = [](const QVariant &value) {
        const bool isDouble = value.metaType() == QMetaType::fromType<double>();
        const QVariant bits = QVariant::fromValue(std::bit_cast<quint64>(value.toDouble()));
        return std::tuple(value.metaType(), value.toString().isNull(), isDouble ? bits : value);
    };
    if (exact(actual) == exact(expected))
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure()
           << actual.typeName() << ' ' << actual.toString() << ", expected " << expected.typeName()
           << ' ' << expected.toString();
}

TEST(XPCHelpers, ConvertsEveryKindAndEveryDictionaryEntryAndReadsThemBack)
{
    const struct
    {
        const char *name;
        QVariant value;   // the library's value
        const char *type; // the D-Bus type it travels as
        QVariant back;    // what it reads back as
    } cases[] = {
        // clang-format off
        {"NullStringIsEmpty", QString(), "s", QStringLiteral("")},
        {"NonAscii", QStringLiteral("Größe 日本 🎬"), "s", QStringLiteral("Größe 日本 🎬")},
        {"EmbeddedNulCutsString", QString::fromUtf16(u"ab\0cd", 5), "s", QStringLiteral("ab")},
        {"BoolFalse", false, "b", false},
        {"CharIsBoolToo", QVariant::fromValue(char(5)), "b", true},
        {"Int32Min", INT_MIN, "x", qlonglong(INT_MIN)},
        {"Int64Max", qlonglong(LLONG_MAX), "x", qlonglong(LLONG_MAX)},
        {"LongIsInt64", QVariant::fromValue(long(-3)), "x", qlonglong(-3)},
        {"UInt32Max", UINT_MAX, "t", qulonglong(UINT_MAX)},
        {"UInt64Max", qulonglong(ULLONG_MAX), "t", qulonglong(ULLONG_MAX)},
        {"ULongIsUInt64", QVariant::fromValue(ulong(7)), "t", qulonglong(7)},
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
    // The table above covers the codes numbers have; these are the texts no number has.
    for (const char *code : {"qq", "", "Qi", static_cast<const char *>(nullptr)})
        EXPECT_FALSE(number_is_int64(code) || number_is_uint64(code)) << (code ? code : "null");

    // Every entry converts by key into what the message holds; keys are C strings, and "@"-keys
    // are looked up on the dictionary itself.
    QVariantMap message{{QStringLiteral("kept"), QStringLiteral("old")}};
    encode_dictionary_as_xpc_object(message, {{QString::fromUtf16(u"cut\0here", 8), true},
                                              {"@count", QStringLiteral("shadowed")}});
    const QVariantMap decoded = decode_dictionary_from_xpc_object(message);
    ASSERT_EQ(decoded.keys(), (QStringList{"@count", "cut", "kept"}));
    EXPECT_TRUE(sameValue(decoded.value("@count"), qulonglong(2)));
    EXPECT_TRUE(sameValue(decoded.value("cut"), true));
    EXPECT_TRUE(sameValue(decoded.value("kept"), QStringLiteral("old")));
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
    EXPECT_DEATH((void)nsobject_to_xpc_object(QVariant()), toBus);
    EXPECT_DEATH((void)nsobject_to_xpc_object(QDateTime()), toBus);
    QVariantMap message;
    EXPECT_DEATH(encode_dictionary_as_xpc_object(message, {{"nested", QVariantMap{{"a", 1}}}}),
                 toBus);
    EXPECT_DEATH((void)xpc_object_to_nsobject(QDBusVariant(int(1))),
                 assertion(140, "xpc_object_to_nsobject", "false"));
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

// Starts vkmetad owning `name` on the private bus (it dies with its bus, and the bus with the
// test process); answers whether it serves.
bool startMetadataService(QProcess &process, const QString &name, const QStringList &options = {})
{
#ifdef VKMETAD_PATH
    process.start(QStringLiteral(VKMETAD_PATH), QStringList{"--name", name} + options);
#endif
    QByteArray out;
    while (!out.contains('\n') && process.waitForReadyRead(10000))
        out += process.readAllStandardOutput();
    return out.startsWith("vkmetad: serving ");
}

// Each sender gets its own whole reply, parameters as their descriptions. Failures answer nothing:
// other replies unlogged, errors logged with the first message, and more when the service exits
// mid-call or is unknown.
TEST(XPCRequest, RepliesAndFailuresAcrossThePrivateBus)
{
#ifndef VKMETAD_PATH
    GTEST_SKIP() << "vkmetad is not part of this build";
#endif
    if (!VKPrivateDBus::shared().isRunning())
        GTEST_SKIP() << VKPrivateDBus::shared().error();
    QProcess serving, exiting;
    ASSERT_TRUE(startMetadataService(serving, "org.vessan.Test.Metadata"));
    ASSERT_TRUE(startMetadataService(exiting, "org.vessan.Test.Exiting", {"--exit-mid-call"}));
    VKTempDir dir;
    const QFileInfo file(dir.writeFile("clip_0002.dpx", "SDPX-frame-2-with-more-bytes"));
    const qint64 seconds = file.lastModified().toSecsSinceEpoch();
    const QVariantMap expected = {
        {"path", file.filePath()},
        {"modificationDate", QDateTime::fromSecsSinceEpoch(seconds, Qt::UTC)},
        {"ready", QStringLiteral("1")},
        {"ratio", QStringLiteral("1.5")},
    };
    std::vector<std::thread> senders;
    for (int t = 0; t < 4; ++t)
        senders.emplace_back([&, t] {
            for (int tag = t * 100; tag < t * 100 + 5; ++tag) {
                XPCRequest request("org.vessan.Test.Metadata");
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

    TwoValues twoValues;
    QDBusConnection other = QDBusConnection::connectToBus(
        QString::fromStdString(VKPrivateDBus::shared().address()), QStringLiteral("xpc-other"));
    other.registerVirtualObject(QStringLiteral("/"), &twoValues);
    const QString invalid = QStringLiteral("connection is invalid, service %1 not found");
    const std::pair<QString, QStringList> cases[] = {
        {other.baseService(), {}},
        {"org.freedesktop.DBus", {kFirst}},
        {"org.vessan.Test.Exiting", {kFirst, kInterrupted}},
        {"org.vessan.Test.Nobody", {kFirst, invalid.arg("org.vessan.Test.Nobody")}},
        {":1.9999", {kFirst, invalid.arg(":1.9999")}},
        {"no such name", {kFirst, invalid.arg("no such name")}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.first);
        VKLogCapture log;
        // Sent from another thread, so that this one can answer for the service in the process.
        auto reply = std::async(std::launch::async, [&] { return XPCRequest(c.first).send(); });
        ASSERT_TRUE(vkWaitUntil([&] { return reply.wait_for(0s) == std::future_status::ready; }));
        EXPECT_FALSE(reply.get());
        EXPECT_EQ(log.messages(), c.second);
        for (const VKLogEntry &entry : log.entries())
            EXPECT_EQ(std::tuple(entry.level, entry.className, entry.prettyFunctionOutput),
                      std::tuple(VKLogLevel::Error, QString("XPCRequest"),
                                 QString("-[XPCRequest send]")));
    }
    QDBusConnection::disconnectFromBus(other.name());
    serving.kill();
    serving.waitForFinished(10000);
}

} // namespace
