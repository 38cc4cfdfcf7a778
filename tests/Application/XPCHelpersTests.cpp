#include "Application/XPCHelpers.h"
#include "Foundation/VKException.h"
#include "VKPrivateDBus.h"
#include "VKTestSupport.h"
#include "XPCTestService.h"

#include <QDBusMetaType>
#include <QUrl>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

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

// Equal in type and value; NaN equals NaN and -0.0 differs from 0.0.
::testing::AssertionResult sameValue(const QVariant &actual, const QVariant &expected)
{
    if (actual.metaType() != expected.metaType())
        return ::testing::AssertionFailure() << "type " << actual.metaType().name() << ", expected "
                                             << expected.metaType().name();
    if (expected.metaType() == QMetaType::fromType<double>()) {
        const double a = actual.toDouble(), e = expected.toDouble();
        if ((std::isnan(a) && std::isnan(e)) || (a == e && std::signbit(a) == std::signbit(e)))
            return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure() << a << ", expected " << e;
    }
    if (expected.metaType() == QMetaType::fromType<QString>() &&
        actual.toString().isNull() != expected.toString().isNull())
        return ::testing::AssertionFailure() << "null and empty strings differ";
    if (actual != expected)
        return ::testing::AssertionFailure()
               << qPrintable(actual.toString()) << ", expected " << qPrintable(expected.toString());
    return ::testing::AssertionSuccess();
}

struct Conversion
{
    const char *name;
    QVariant value;   // the library's value
    const char *type; // the D-Bus type it travels as
    QVariant back;    // what it reads back as
};

QByteArray mebibyte()
{
    QByteArray data(1 << 20, '\0');
    for (qsizetype i = 0; i < data.size(); ++i)
        data[i] = char(i * 7 + i / 251);
    return data;
}

const QList<Conversion> &conversions()
{
    using L = std::numeric_limits<qint64>;
    using U = std::numeric_limits<quint64>;
    const double inf = std::numeric_limits<double>::infinity();
    static const QList<Conversion> table = {
        {"String", QStringLiteral("A001_C002"), "s", QStringLiteral("A001_C002")},
        {"EmptyString", QStringLiteral(""), "s", QStringLiteral("")},
        {"NullStringIsEmpty", QString(), "s", QStringLiteral("")},
        {"NonAscii", QStringLiteral("Größe 日本 🎬"), "s", QStringLiteral("Größe 日本 🎬")},
        {"EmbeddedNulCutsString", QString::fromUtf16(u"ab\0cd", 5), "s", QStringLiteral("ab")},
        {"BoolTrue", true, "b", true},
        {"BoolFalse", false, "b", false},
        {"CharIsBoolToo", QVariant::fromValue(char(5)), "b", true},
        {"Int32Min", std::numeric_limits<int>::min(), "x",
         qlonglong(std::numeric_limits<int>::min())},
        {"Int64Min", qlonglong(L::min()), "x", qlonglong(L::min())},
        {"Int64Max", qlonglong(L::max()), "x", qlonglong(L::max())},
        {"LongIsInt64", QVariant::fromValue(long(-3)), "x", qlonglong(-3)},
        {"UInt32Max", std::numeric_limits<uint>::max(), "t",
         qulonglong(std::numeric_limits<uint>::max())},
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
        {"MebibyteData", mebibyte(), "ay", mebibyte()},
    };
    return table;
}

class XPCConversion : public ::testing::TestWithParam<Conversion>
{
};

TEST_P(XPCConversion, ConvertsAndReadsBack)
{
    const Conversion &c = GetParam();
    const QDBusVariant converted = nsobject_to_xpc_object(c.value);
    EXPECT_EQ(signatureOf(converted.variant()), QLatin1String(c.type));
    EXPECT_TRUE(sameValue(xpc_object_to_nsobject(converted), c.back));
}

INSTANTIATE_TEST_SUITE_P(Kinds, XPCConversion, ::testing::ValuesIn(conversions()),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(XPCHelpers, TypeCodesSelectTheIntegerKinds)
{
    struct Case
    {
        const char *code;
        bool int64;
        bool uint64;
    };
    for (const Case &c :
         {Case{"i", true, false}, Case{"q", true, false}, Case{"I", false, true},
          Case{"Q", false, true}, Case{"c", false, false}, Case{"s", false, false},
          Case{"d", false, false}, Case{"qq", false, false}, Case{"", false, false}}) {
        EXPECT_EQ(number_is_int64(c.code), c.int64) << c.code;
        EXPECT_EQ(number_is_uint64(c.code), c.uint64) << c.code;
    }
    EXPECT_FALSE(number_is_int64(nullptr));
    EXPECT_STREQ(vkNumberTypeCode(QVariant::fromValue(ulong(1))), "Q");
    EXPECT_EQ(vkNumberTypeCode(QStringLiteral("1")), nullptr);
}

TEST(XPCHelpers, DictionariesConvertEveryEntryByKey)
{
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
}

TEST(XPCHelpers, AtKeysAreLookedUpOnTheDictionary)
{
    QVariantMap message;
    encode_dictionary_as_xpc_object(message,
                                    {{"@count", QStringLiteral("shadowed")}, {"b", 1}, {"c", 2}});
    EXPECT_TRUE(sameValue(message.value("@count"), qulonglong(3)));
    try {
        encode_dictionary_as_xpc_object(message, {{"@size", 1}});
        FAIL() << "no exception";
    } catch (const VKException &e) {
        EXPECT_EQ(e.name(), VKUndefinedKeyException);
        EXPECT_TRUE(e.reason().endsWith("this class is not key value coding-compliant for the "
                                        "key size."))
            << qPrintable(e.reason());
    }
}

// --- Assertions ---

std::string assertionText(int line, const char *function, const char *expression)
{
    return "(^|\n)Classes/XPCHelpers:" + std::to_string(line) + ": " + function + ": Assertion `" +
           expression + "' failed\\.\n";
}

TEST(XPCHelpersDeathTest, UnconvertibleValuesStopTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const std::string toXpc = assertionText(70, "nsobject_to_xpc_object", "false");
    struct Case
    {
        const char *name;
        QVariant value;
    };
    for (const Case &c : {Case{"null", QVariant()}, Case{"list", QVariantList{1}},
                          Case{"map", QVariantMap{{"a", 1}}}, Case{"invalid date", QDateTime()},
                          Case{"url", QUrl("file:///a")}}) {
        SCOPED_TRACE(c.name);
        EXPECT_DEATH((void)nsobject_to_xpc_object(c.value), toXpc);
    }
    QVariantMap message;
    EXPECT_DEATH(encode_dictionary_as_xpc_object(message, {{"nested", QVariantMap{{"a", 1}}}}),
                 toXpc);
}

TEST(XPCHelpersDeathTest, DataBeyondTheArrayLimitIsRefused)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH((void)nsobject_to_xpc_object(QByteArray((1 << 26) + 1, 'x')),
                 assertionText(73, "nsobject_to_xpc_object", "value_xpc != NULL"));
    EXPECT_EQ(signatureOf(nsobject_to_xpc_object(QByteArray(1 << 26, 'x')).variant()), "ay");
}

TEST(XPCHelpersDeathTest, UnknownKindsAndImpossibleDatesStopTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const std::string unknown = assertionText(140, "xpc_object_to_nsobject", "false");
    struct Case
    {
        const char *name;
        QVariant value;
    };
    for (const Case &c :
         {Case{"uint32", QVariant::fromValue(uint(1))}, Case{"int32", QVariant::fromValue(int(1))},
          Case{"string list", QStringList{"a"}},
          Case{"variant", QVariant::fromValue(QDBusVariant(1))}, Case{"null", QVariant()}}) {
        SCOPED_TRACE(c.name);
        EXPECT_DEATH((void)xpc_object_to_nsobject(QDBusVariant(c.value)), unknown);
    }
    EXPECT_DEATH(
        (void)decode_dictionary_from_xpc_object(
            {{"late", QVariant::fromValue(VKXPCDate{std::numeric_limits<qint64>::max()})}}),
        assertionText(143, "xpc_object_to_nsobject", "value != nil"));
}

// --- Through a real bus ---

// Sends `dictionary` to a service that decodes and encodes it again, and decodes the answer:
// each value crosses the bus twice. `wire` receives the raw answer as Qt DBus reads it.
std::optional<QVariantMap> roundTrip(const QVariantMap &dictionary, QVariantMap *wire = nullptr)
{
    XPCTestService echo([](const QDBusMessage &call) {
        const QVariantMap received =
            decode_dictionary_from_xpc_object(qdbus_cast<QVariantMap>(call.arguments().at(0)));
        QVariantMap answer;
        encode_dictionary_as_xpc_object(answer, received);
        return call.createReply(QVariant::fromValue(answer));
    });
    QDBusMessage call =
        QDBusMessage::createMethodCall(echo.busName(), "/", "org.vessan.Test", "Echo");
    QVariantMap message;
    encode_dictionary_as_xpc_object(message, dictionary);
    call << QVariant::fromValue(message);
    const QDBusMessage reply = QDBusConnection::sessionBus().call(call, QDBus::Block, 20000);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.signature() != "a{sv}") {
        ADD_FAILURE() << qPrintable(reply.errorName()) << " " << qPrintable(reply.errorMessage());
        return std::nullopt;
    }
    if (wire)
        *wire = qdbus_cast<QVariantMap>(reply.arguments().at(0));
    return decode_dictionary_from_xpc_object(qdbus_cast<QVariantMap>(reply.arguments().at(0)));
}

class XPCBus : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (!VKPrivateDBus::shared().isRunning())
            GTEST_SKIP() << VKPrivateDBus::shared().error();
        VKXPCDate::registerMetaType();
    }
};

TEST_F(XPCBus, EveryKindSurvivesTheBus)
{
    QVariantMap dictionary;
    for (const Conversion &c : conversions())
        dictionary.insert(QString::fromLatin1(c.name), c.value);
    QVariantMap wire;
    const std::optional<QVariantMap> back = roundTrip(dictionary, &wire);
    ASSERT_TRUE(back);
    ASSERT_EQ(back->size(), conversions().size());
    for (const Conversion &c : conversions()) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(signatureOf(wire.value(c.name)), QLatin1String(c.type));
        EXPECT_TRUE(sameValue(back->value(c.name), c.back));
    }
}

TEST_F(XPCBus, EmptyAndNonAsciiKeys)
{
    const QVariantMap dictionary{{"", 1}, {QStringLiteral("clé"), 2}};
    const std::optional<QVariantMap> back = roundTrip(dictionary);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->keys(), dictionary.keys());
    EXPECT_TRUE(roundTrip({}).value_or(QVariantMap{{"x", 1}}).isEmpty());
}

} // namespace
