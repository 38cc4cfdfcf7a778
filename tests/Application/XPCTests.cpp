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

// An in-process service: its own connection to the private bus and an object at "/" whose calls
// a handler answers on a worker thread, so that the main thread can block in a call to it.
class XPCTestService
{
public:
    // Answers a call, or returns a null message to leave it unanswered.
    using Handler = std::function<QDBusMessage(const QDBusMessage &call)>;

    explicit XPCTestService(Handler handler) : m_object(std::move(handler))
    {
        m_thread.start();
        m_object.moveToThread(&m_thread);
        QDBusConnection::connectToBus(QString::fromStdString(VKPrivateDBus::shared().address()),
                                      m_name)
            .registerVirtualObject(QStringLiteral("/"), &m_object);
    }
    ~XPCTestService()
    {
        QDBusConnection(m_name).unregisterObject(QStringLiteral("/"));
        QDBusConnection::disconnectFromBus(m_name);
        m_thread.quit();
        m_thread.wait();
    }
    // The unique name (":1.42") to call the service by.
    QString busName() const { return QDBusConnection(m_name).baseService(); }

private:
    struct Object : QDBusVirtualObject
    {
        explicit Object(Handler h) : handler(std::move(h)) {}
        QString introspect(const QString &) const override { return {}; }
        bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override
        {
            const QDBusMessage reply = handler(message);
            if (reply.type() != QDBusMessage::InvalidMessage)
                connection.send(reply);
            return true;
        }
        Handler handler;
    };
    static inline int s_count = 0;
    const QString m_name = QStringLiteral("xpc-test-service-%1").arg(++s_count);
    QThread m_thread;
    Object m_object;
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
    const auto bits = [](const QVariant &value) { return std::bit_cast<quint64>(value.toDouble()); };
    const auto null = [](const QVariant &value) {
        return value.metaType() == QMetaType::fromType<QString>() && value.toString().isNull();
    };
    if (actual.metaType() == expected.metaType() &&
        (expected.metaType() == QMetaType::fromType<double>()
             ? bits(actual) == bits(expected)
             : actual == expected && null(actual) == null(expected)))
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << actual.metaType().name() << ' ' << actual.toString()
                                         << ", expected " << expected.metaType().name() << ' '
                                         << expected.toString();
}

struct Conversion
{
    const char *name;
    QVariant value;   // the library's value
    const char *type; // the D-Bus type it travels as
    QVariant back;    // what it reads back as
};

const QList<Conversion> &conversions()
{
    using L = std::numeric_limits<qint64>;
    using U = std::numeric_limits<quint64>;
    const double inf = std::numeric_limits<double>::infinity();
    const int intMin = std::numeric_limits<int>::min();
    const uint uintMax = std::numeric_limits<uint>::max();
    // clang-format off
    static const QList<Conversion> table = {
        {"String", QStringLiteral("A001_C002"), "s", QStringLiteral("A001_C002")},
        {"EmptyString", QStringLiteral(""), "s", QStringLiteral("")},
        {"NullStringIsEmpty", QString(), "s", QStringLiteral("")},
        {"NonAscii", QStringLiteral("Größe 日本 🎬"), "s", QStringLiteral("Größe 日本 🎬")},
        {"EmbeddedNulCutsString", QString::fromUtf16(u"ab\0cd", 5), "s", QStringLiteral("ab")},
        {"BoolTrue", true, "b", true},
        {"BoolFalse", false, "b", false},
        {"CharIsBoolToo", QVariant::fromValue(char(5)), "b", true},
        {"Int32Min", intMin, "x", qlonglong(intMin)},
        {"Int64Min", qlonglong(L::min()), "x", qlonglong(L::min())},
        {"Int64Max", qlonglong(L::max()), "x", qlonglong(L::max())},
        {"LongIsInt64", QVariant::fromValue(long(-3)), "x", qlonglong(-3)},
        {"UInt32Max", uintMax, "t", qulonglong(uintMax)},
        {"UInt64Max", qulonglong(U::max()), "t", qulonglong(U::max())},
        {"UInt64Zero", qulonglong(0), "t", qulonglong(0)},
        {"Double", 0.1, "d", 0.1},
        {"NaN", std::nan(""), "d", std::nan("")},
        {"PlusInfinity", inf, "d", inf},
        {"MinusInfinity", -inf, "d", -inf},
        {"MinusZero", -0.0, "d", -0.0},
        {"Float", 0.25f, "d", 0.25},
        {"Int16IsDouble", QVariant::fromValue(short(-32768)), "d", -32768.0},
        {"UInt16IsDouble", QVariant::fromValue(ushort(65535)), "d", 65535.0},
        {"UCharIsDouble", QVariant::fromValue(uchar(200)), "d", 200.0},
        {"DateTruncated", at(1900), "(x)", at(1000)},
        {"DateBefore1970TowardZero", at(-1900), "(x)", at(-1000)},
        {"DateEpoch", at(0), "(x)", at(0)},
        {"EmptyData", QByteArray(""), "ay", QByteArray("")},
        {"DataWithNul", QByteArray("\0\xff\0", 3), "ay", QByteArray("\0\xff\0", 3)},
    };
    // clang-format on
    return table;
}

TEST(XPCHelpers, ConvertsEveryKindAndReadsItBack)
{
    for (const Conversion &c : conversions()) {
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
    const struct
    {
        const char *name;
        QVariant value;
        bool toBus;
    } cases[] = {
        {"null", QVariant(), true},
        {"invalid date", QDateTime(), true},
        {"int32 from the bus", QVariant::fromValue(int(1)), false},
        {"variant from the bus", QVariant::fromValue(QDBusVariant(1)), false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        if (c.toBus)
            EXPECT_DEATH((void)nsobject_to_xpc_object(c.value), toBus);
        else
            EXPECT_DEATH((void)xpc_object_to_nsobject(QDBusVariant(c.value)), fromBus);
    }
    QVariantMap message;
    EXPECT_DEATH(encode_dictionary_as_xpc_object(message, {{"nested", QVariantMap{{"a", 1}}}}),
                 toBus);
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

// vkmetad on the private bus, owning `name` until the object goes (or the bus does: the bus
// daemon dies with the test process, and vkmetad with its bus).
struct MetadataService
{
    explicit MetadataService(const QString &name, const QStringList &extra = {})
    {
#ifdef VKMETAD_PATH
        process.start(QStringLiteral(VKMETAD_PATH), QStringList{"--name", name} + extra);
        // The service says so once it owns its name.
        while (!out.contains('\n') && process.waitForReadyRead(10000))
            out += process.readAllStandardOutput();
#endif
    }
    ~MetadataService()
    {
        process.kill();
        process.waitForFinished(10000);
    }
    bool isServing() const { return out.startsWith("vkmetad: serving "); }
    QProcess process;
    QByteArray out;
};

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
        // Members of clip_####.dpx, 1 to 3, and a file of its own.
        for (int frame = 1; frame <= 3; ++frame)
            m_dir.writeFile(QStringLiteral("A/clip_%1.dpx").arg(frame, 4, 10, QChar(u'0')),
                            "SDPX-frame-" + QByteArray::number(frame) + "-with-more-bytes");
        m_single = m_dir.writeFile("A/notes.txt", "");
    }

    QString serviceName() const
    {
        return QStringLiteral("org.vessan.Test.Metadata%1")
            .arg(::testing::UnitTest::GetInstance()->current_test_info()->line());
    }

    // What a request for `parameters` answers, and what it logs.
    std::optional<QVariantMap> send(const QString &service, const QVariantMap &parameters,
                                    QStringList *logged = nullptr, int timeout = 0)
    {
        VKLogCapture log;
        XPCRequest request(service);
        request.setParameters(parameters);
        if (timeout)
            request.setTimeout(timeout);
        const std::optional<QVariantMap> reply = request.send();
        if (logged)
            *logged = log.messages();
        return reply;
    }

    VKTempDir m_dir;
    QString m_single;
};

TEST_F(XPCRequestTest, ReplyKindsFollowTheMapping)
{
    MetadataService service(serviceName());
    ASSERT_TRUE(service.isServing());
    const QString member = m_dir.filePath("A/clip_0002.dpx");
    const std::optional<QVariantMap> reply =
        send(serviceName(), {{"path", member}, {"tag", 25}, {"ready", true}, {"ratio", 1.5}});
    ASSERT_TRUE(reply);
    const QFileInfo info(member);
    const std::pair<const char *, QVariant> expected[] = {
        {"path", member},
        {"size", qulonglong(info.size())},
        {"modificationDate",
         QDateTime::fromSecsSinceEpoch(info.lastModified().toSecsSinceEpoch(), Qt::UTC)},
        {"header", QByteArray("SDPX-frame-2-wit")},
        {"isSequenceMember", true},
        {"sequenceIdentifier", m_dir.filePath("A/clip_1-3####.dpx")},
        {"sequenceFrameCount", qulonglong(3)},
        {"frameNumber", qlonglong(2)},
        // Every parameter travels as its description.
        {"tag", QStringLiteral("25")},
        {"ready", QStringLiteral("1")},
        {"ratio", QStringLiteral("1.5")},
    };
    for (const auto &[key, value] : expected)
        EXPECT_TRUE(sameValue(reply->value(key), value)) << key;
    EXPECT_EQ(reply->value("modificationTime").metaType(), QMetaType::fromType<double>());
    EXPECT_NEAR(reply->value("modificationTime").toDouble(),
                info.lastModified().toMSecsSinceEpoch() / 1000.0, 0.001);

    // A file of its own is no sequence member.
    const std::optional<QVariantMap> single = send(serviceName(), {{"path", m_single}});
    ASSERT_TRUE(single);
    EXPECT_EQ(single->value("isSequenceMember"), QVariant(false));
    EXPECT_EQ(single->value("header"), QVariant(QByteArray("")));
    EXPECT_FALSE(single->contains("sequenceIdentifier"));
}

TEST_F(XPCRequestTest, BadRequestsGetErrorsAndTheServiceGoesOn)
{
    MetadataService service(serviceName());
    ASSERT_TRUE(service.isServing());
    using StringMap = QMap<QString, QString>;
    const auto rawSend = [&](const QVariant &parameters) {
        QDBusMessage call = QDBusMessage::createMethodCall(
            serviceName(), "/", XPCRequest::interfaceName, XPCRequest::methodName);
        call << parameters;
        return QDBusConnection::sessionBus().call(call, QDBus::Block, 10000);
    };
    const QString invalid = "org.freedesktop.DBus.Error.InvalidArgs";
    const QString missing = m_dir.filePath("A/none.dpx");
    const struct
    {
        const char *name;
        QVariant parameters;
        QString error, message;
    } cases[] = {
        {"no path", QVariant::fromValue(StringMap{{"file", m_single}}), invalid,
         "missing parameter \"path\""},
        {"relative path", QVariant::fromValue(StringMap{{"path", "A/notes.txt"}}), invalid,
         "the path must be absolute: \"A/notes.txt\""},
        {"missing file", QVariant::fromValue(StringMap{{"path", missing}}),
         "org.vessan.Utilities.Error.FileNotFound", missing + ": No such file or directory"},
        {"folder", QVariant::fromValue(StringMap{{"path", m_dir.path()}}),
         "org.vessan.Utilities.Error.NotAFile", m_dir.path() + ": not a file"},
        {"number parameter", QVariant::fromValue(QVariantMap{{"path", 25}}), invalid,
         "Send takes one dictionary of string parameters (a{ss}), not (a{sv})"},
        {"bare string", QVariant(m_single), invalid,
         "Send takes one dictionary of string parameters (a{ss}), not (s)"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const QDBusMessage reply = rawSend(c.parameters);
        EXPECT_EQ(reply.errorName(), c.error);
        EXPECT_EQ(reply.errorMessage(), c.message);
    }
    const QDBusMessage next = rawSend(QVariant::fromValue(StringMap{{"path", m_single}}));
    EXPECT_EQ(next.signature(), "a{sv}") << qPrintable(next.errorMessage());

    // Through a request, a refusal is no answer, logged with the first message only.
    QStringList logged;
    EXPECT_FALSE(send(serviceName(), {{"path", missing}}, &logged));
    EXPECT_EQ(logged, QStringList{kFirst});
}

TEST_F(XPCRequestTest, AnUnknownServiceIsAnInvalidConnection)
{
    for (const QString service : {"org.vessan.Test.Nobody", ":1.9999", "no such name"}) {
        SCOPED_TRACE(service);
        VKLogCapture log;
        XPCRequest request(service);
        request.setParameters({{"path", m_single}});
        EXPECT_FALSE(request.send());
        ASSERT_EQ(log.messages(), (QStringList{kFirst, "connection is invalid, service " + service +
                                                           " not found"}));
        const VKLogEntry entry = log.entries().first();
        EXPECT_EQ(entry.level, VKLogLevel::Error);
        EXPECT_EQ(entry.className, "XPCRequest");
        EXPECT_EQ(entry.prettyFunctionOutput, "-[XPCRequest send]");
    }
}

TEST_F(XPCRequestTest, AServiceExitingOrSilentIsAnInterruption)
{
    MetadataService service(serviceName(), {"--exit-mid-call"});
    ASSERT_TRUE(service.isServing());
    QStringList logged;
    EXPECT_FALSE(send(serviceName(), {{"path", m_single}}, &logged));
    EXPECT_EQ(logged, (QStringList{kFirst, kInterrupted}));
    ASSERT_TRUE(service.process.waitForFinished(10000));
    EXPECT_EQ(service.process.exitCode(), 70);

    XPCTestService silent([](const QDBusMessage &) { return QDBusMessage(); });
    EXPECT_EQ(XPCRequest(silent.busName()).timeout(), 25000);
    EXPECT_FALSE(send(silent.busName(), {}, &logged, 100));
    EXPECT_EQ(logged, (QStringList{kFirst, kInterrupted}));
}

TEST_F(XPCRequestTest, OtherRepliesAnswerNothingUnloggedAndOtherErrorsLogOnce)
{
    XPCTestService other([](const QDBusMessage &call) -> QDBusMessage {
        const auto parameters = qdbus_cast<QMap<QString, QString>>(call.arguments().at(0));
        if (parameters.value("answer") == "string")
            return call.createReply(QStringLiteral("a string"));
        if (parameters.value("answer") == "two")
            return call.createReply(QVariantList{QVariant::fromValue(QVariantMap()), 2});
        return call.createErrorReply("org.vessan.Test.Error", "refused");
    });
    // Only the error reply is logged, with the first message alone; so is the bus's own refusal.
    const std::pair<QString, QStringList> cases[] = {
        {"string", {}}, {"two", {}}, {"error", {kFirst}}};
    for (const auto &[answer, expected] : cases) {
        QStringList logged;
        EXPECT_FALSE(send(other.busName(), {{"answer", answer}}, &logged)) << answer;
        EXPECT_EQ(logged, expected) << answer;
    }
    QStringList logged;
    EXPECT_FALSE(send(QStringLiteral("org.freedesktop.DBus"), {}, &logged));
    EXPECT_EQ(logged, QStringList{kFirst});
}

TEST_F(XPCRequestTest, RequestsFromSeveralThreads)
{
    MetadataService service(serviceName());
    ASSERT_TRUE(service.isServing());
    constexpr int threads = 4, each = 5;
    std::atomic<int> answered{0};
    std::vector<std::thread> senders;
    for (int t = 0; t < threads; ++t) {
        senders.emplace_back([&, t] {
            for (int i = 0; i < each; ++i) {
                XPCRequest request(serviceName());
                request.setParameters(
                    {{"path", m_dir.filePath("A/clip_0001.dpx")}, {"tag", t * 100 + i}});
                const std::optional<QVariantMap> reply = request.send();
                answered += reply && reply->value("tag") == QString::number(t * 100 + i) &&
                            reply->value("frameNumber") == qlonglong(1);
            }
        });
    }
    for (std::thread &sender : senders)
        sender.join();
    EXPECT_EQ(answered.load(), threads * each);
}

} // namespace
