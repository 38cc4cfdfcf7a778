#include "Application/XPCHelpers.h"
#include "Application/XPCRequest.h"
#include "VKPrivateDBus.h"
#include "VKTestSupport.h"
#include "XPCTestService.h"

#include <QDBusMetaType>
#include <QFile>
#include <QFileInfo>
#include <QProcess>

#include <gtest/gtest.h>

#include <csignal>
#include <thread>

namespace {

const QString kFirst = QStringLiteral("error calling metadata XPC service");
const QString kInterrupted = QStringLiteral("premature exit of service, maybe it crashed?");

// vkmetad on the private bus, owning `name` until the object goes (or the bus does: the bus
// daemon dies with the test process, and vkmetad with its bus).
class MetadataService
{
public:
    explicit MetadataService(const QString &name, const QStringList &extra = {})
    {
#ifdef VKMETAD_PATH
        m_process.start(QStringLiteral(VKMETAD_PATH),
                        QStringList{QStringLiteral("--name"), name} + extra);
        // The service says so once it owns its name.
        while (!m_out.contains('\n') && m_process.waitForReadyRead(10000))
            m_out += m_process.readAllStandardOutput();
#endif
    }
    ~MetadataService()
    {
        m_process.kill();
        m_process.waitForFinished(10000);
    }
    bool isServing() const
    {
        return m_out.startsWith("vkmetad: serving ");
    }
    QProcess &process()
    {
        return m_process;
    }

private:
    QProcess m_process;
    QByteArray m_out;
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

    // A raw call to Send, with parameters of any D-Bus type.
    static QDBusMessage rawSend(const QString &service, const QVariant &parameters)
    {
        QDBusMessage call = QDBusMessage::createMethodCall(service, "/", XPCRequest::interfaceName,
                                                           XPCRequest::methodName);
        call << parameters;
        return QDBusConnection::sessionBus().call(call, QDBus::Block, 10000);
    }

    VKTempDir m_dir;
    QString m_single;
};

TEST_F(XPCRequestTest, ReplyKindsFollowTheMapping)
{
    MetadataService service(serviceName());
    ASSERT_TRUE(service.isServing());
    const QString member = m_dir.filePath("A/clip_0002.dpx");
    XPCRequest request(serviceName());
    request.setParameters({{"path", member}, {"tag", 25}, {"ready", true}, {"ratio", 1.5}});
    const std::optional<QVariantMap> reply = request.send();
    ASSERT_TRUE(reply);

    struct Expected
    {
        const char *key;
        QVariant value;
    };
    const QFileInfo info(member);
    const QDateTime modified =
        QDateTime::fromSecsSinceEpoch(info.lastModified().toSecsSinceEpoch(), Qt::UTC);
    for (const Expected &e : {
             Expected{"path", member},
             Expected{"size", qulonglong(info.size())},
             Expected{"modificationDate", modified},
             Expected{"header", QByteArray("SDPX-frame-2-wit")},
             Expected{"isSequenceMember", true},
             Expected{"sequenceIdentifier", m_dir.filePath("A/clip_1-3####.dpx")},
             Expected{"sequenceFrameCount", qulonglong(3)},
             Expected{"frameNumber", qlonglong(2)},
             // Every parameter travels as its description.
             Expected{"tag", QStringLiteral("25")},
             Expected{"ready", QStringLiteral("1")},
             Expected{"ratio", QStringLiteral("1.5")},
         }) {
        SCOPED_TRACE(e.key);
        EXPECT_EQ(reply->value(e.key).metaType(), e.value.metaType());
        EXPECT_EQ(reply->value(e.key), e.value);
    }
    EXPECT_EQ(reply->value("modificationTime").metaType(), QMetaType::fromType<double>());
    EXPECT_NEAR(reply->value("modificationTime").toDouble(),
                info.lastModified().toMSecsSinceEpoch() / 1000.0, 0.001);
}

TEST_F(XPCRequestTest, AFileOfItsOwnIsNoSequenceMember)
{
    MetadataService service(serviceName());
    ASSERT_TRUE(service.isServing());
    XPCRequest request(serviceName());
    request.setParameters({{"path", m_single}});
    const std::optional<QVariantMap> reply = request.send();
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->value("isSequenceMember"), QVariant(false));
    EXPECT_EQ(reply->value("header"), QVariant(QByteArray("")));
    EXPECT_FALSE(reply->contains("sequenceIdentifier"));
}

TEST_F(XPCRequestTest, BadRequestsGetErrorsAndTheServiceGoesOn)
{
    MetadataService service(serviceName());
    ASSERT_TRUE(service.isServing());
    using StringMap = QMap<QString, QString>;
    struct Case
    {
        const char *name;
        QVariant parameters;
        const char *error;
        QString message;
    };
    const QString missing = m_dir.filePath("A/none.dpx");
    for (const Case &c : {
             Case{"no path", QVariant::fromValue(StringMap{{"file", m_single}}),
                  "org.freedesktop.DBus.Error.InvalidArgs", "missing parameter \"path\""},
             Case{"relative path", QVariant::fromValue(StringMap{{"path", "A/notes.txt"}}),
                  "org.freedesktop.DBus.Error.InvalidArgs",
                  "the path must be absolute: \"A/notes.txt\""},
             Case{"missing file", QVariant::fromValue(StringMap{{"path", missing}}),
                  "org.vessan.Utilities.Error.FileNotFound",
                  missing + ": No such file or directory"},
             Case{"folder", QVariant::fromValue(StringMap{{"path", m_dir.path()}}),
                  "org.vessan.Utilities.Error.NotAFile", m_dir.path() + ": not a file"},
             Case{"number parameter", QVariant::fromValue(QVariantMap{{"path", 25}}),
                  "org.freedesktop.DBus.Error.InvalidArgs",
                  "Send takes one dictionary of string parameters (a{ss}), not (a{sv})"},
             Case{"bare string", QVariant(m_single), "org.freedesktop.DBus.Error.InvalidArgs",
                  "Send takes one dictionary of string parameters (a{ss}), not (s)"},
         }) {
        SCOPED_TRACE(c.name);
        const QDBusMessage reply = rawSend(serviceName(), c.parameters);
        EXPECT_EQ(reply.errorName(), QLatin1String(c.error));
        EXPECT_EQ(reply.errorMessage(), c.message);
        const QDBusMessage next =
            rawSend(serviceName(), QVariant::fromValue(StringMap{{"path", m_single}}));
        EXPECT_EQ(next.signature(), "a{sv}") << qPrintable(next.errorMessage());
    }

    // Through a request, a refusal is no answer, logged with the first message only.
    VKLogCapture log;
    XPCRequest request(serviceName());
    request.setParameters({{"path", missing}});
    EXPECT_FALSE(request.send());
    EXPECT_EQ(log.messages(), QStringList{kFirst});
}

TEST_F(XPCRequestTest, AnUnknownServiceIsAnInvalidConnection)
{
    struct Case
    {
        const char *name;
        QString service;
    };
    for (const Case &c : {Case{"well-known", "org.vessan.Test.Nobody"}, Case{"unique", ":1.9999"},
                          Case{"malformed", "no such name"}}) {
        SCOPED_TRACE(c.name);
        VKLogCapture log;
        XPCRequest request(c.service);
        request.setParameters({{"path", m_single}});
        EXPECT_FALSE(request.send());
        ASSERT_EQ(log.messages(), (QStringList{kFirst, "connection is invalid, service " +
                                                           c.service + " not found"}));
        const VKLogEntry entry = log.entries().first();
        EXPECT_EQ(entry.level, VKLogLevel::Error);
        EXPECT_EQ(entry.className, "XPCRequest");
        EXPECT_EQ(entry.prettyFunctionOutput, "-[XPCRequest send]");
    }
}

TEST_F(XPCRequestTest, AServiceExitingMidCallIsAnInterruption)
{
    MetadataService service(serviceName(), {"--exit-mid-call"});
    ASSERT_TRUE(service.isServing());
    VKLogCapture log;
    XPCRequest request(serviceName());
    request.setParameters({{"path", m_single}});
    EXPECT_FALSE(request.send());
    EXPECT_EQ(log.messages(), (QStringList{kFirst, kInterrupted}));
    ASSERT_TRUE(service.process().waitForFinished(10000));
    EXPECT_EQ(service.process().exitCode(), 70);
}

TEST_F(XPCRequestTest, OtherRepliesAnswerNothingUnloggedAndOtherErrorsLogOnce)
{
    XPCTestService other([](const QDBusMessage &call) -> QDBusMessage {
        if (call.arguments().constFirst().value<QDBusArgument>().currentSignature() != "a{ss}")
            return call.createErrorReply("org.vessan.Test.Error", "not a{ss}");
        const auto parameters = qdbus_cast<QMap<QString, QString>>(call.arguments().at(0));
        if (parameters.value("answer") == "string")
            return call.createReply(QStringLiteral("a string"));
        if (parameters.value("answer") == "two")
            return call.createReply(QVariantList{QVariant::fromValue(QVariantMap()), 2});
        return call.createErrorReply("org.vessan.Test.Error", "refused");
    });
    VKLogCapture log;
    for (const char *answer : {"string", "two", "error"}) {
        SCOPED_TRACE(answer);
        XPCRequest request(other.busName());
        request.setParameters({{"answer", QString::fromLatin1(answer)}});
        EXPECT_FALSE(request.send());
    }
    // Only the error reply is logged, with the first message alone.
    EXPECT_EQ(log.messages(), QStringList{kFirst});
    log.clear();
    XPCRequest busItself(QStringLiteral("org.freedesktop.DBus"));
    EXPECT_FALSE(busItself.send());
    EXPECT_EQ(log.messages(), QStringList{kFirst});
}

TEST_F(XPCRequestTest, AnUnansweredCallEndsAfterTheTimeout)
{
    XPCTestService silent([](const QDBusMessage &) { return QDBusMessage(); });
    VKLogCapture log;
    XPCRequest request(silent.busName());
    EXPECT_EQ(request.timeout(), 25000);
    request.setTimeout(100);
    EXPECT_FALSE(request.send());
    EXPECT_EQ(log.messages(), (QStringList{kFirst, kInterrupted}));
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
                if (reply && reply->value("tag") == QString::number(t * 100 + i) &&
                    reply->value("frameNumber") == qlonglong(1))
                    ++answered;
            }
        });
    }
    for (std::thread &sender : senders)
        sender.join();
    EXPECT_EQ(answered.load(), threads * each);
}

} // namespace
