// Property lists: every type both ways in both formats, the integer and date edges, format
// detection, and what cannot be written or read.
#include "Foundation/VKPropertyList.h"

#include "../support/VKTestSupport.h"

#include <gtest/gtest.h>

#include <QDateTime>
#include <QFile>
#include <QSize>

#include <limits>

// Shared with the user-defaults tests of this suite.
QByteArray everyByte()
{
    QByteArray bytes;
    for (int i = 0; i < 256; ++i)
        bytes.append(char(i));
    return bytes;
}

namespace {

const QDateTime kReference(QDate(2001, 1, 1), QTime(0, 0), Qt::UTC);

QVariant roundTrip(const QVariant &value, VKPropertyListFormat format)
{
    VKError error;
    const QByteArray data = VKPropertyList::dataWithPropertyList(value, format, &error);
    EXPECT_TRUE(error.isNull()) << error.description().toStdString();
    VKPropertyListFormat found{};
    const QVariant back = VKPropertyList::propertyListWithData(data, &found, &error);
    EXPECT_TRUE(error.isNull()) << error.description().toStdString();
    EXPECT_EQ(found, format);
    return back;
}

} // namespace

TEST(PropertyList, ValuesRoundTripWithTheirTypesInBothFormats)
{
    // clang-format off
    const struct { const char *name; QVariant value; QVariant expected /* null: the value */; int typeId; } cases[] = {
        {"true", true, {}, QMetaType::Bool}, {"false", false, {}, QMetaType::Bool},
        {"int widens", 42, qlonglong(42), QMetaType::LongLong},
        {"zero", qlonglong(0), {}, QMetaType::LongLong}, {"negative", qlonglong(-5), {}, QMetaType::LongLong},
        {"int64 min", std::numeric_limits<qlonglong>::min(), {}, QMetaType::LongLong},
        {"int64 max", std::numeric_limits<qlonglong>::max(), {}, QMetaType::LongLong},
        {"small unsigned reads signed", quint64(7), qlonglong(7), QMetaType::LongLong},
        {"unsigned above int64", quint64(1) << 63, {}, QMetaType::ULongLong},
        {"uint64 max", std::numeric_limits<quint64>::max(), {}, QMetaType::ULongLong},
        {"real", 0.1, {}, QMetaType::Double}, {"huge real", 1e300, {}, QMetaType::Double},
        {"float widens", 2.5f, 2.5, QMetaType::Double}, {"empty string", QString(""), {}, QMetaType::QString},
        {"unicode string", QString::fromUtf8("größe \U0001F3AC"), {}, QMetaType::QString},
        {"every byte", everyByte(), {}, QMetaType::QByteArray}, {"empty data", QByteArray(""), {}, QMetaType::QByteArray},
        {"date before 2001", kReference.addSecs(-86400 * 365), {}, QMetaType::QDateTime},
        {"empty list", QVariantList{}, {}, QMetaType::QVariantList},
        {"string list", QStringList{"a", "b"}, QVariantList{"a", "b"}, QMetaType::QVariantList},
        {"empty map", QVariantMap{}, {}, QMetaType::QVariantMap},
        {"hash", QVariantHash{{"k", true}}, QVariantMap{{"k", true}}, QMetaType::QVariantMap},
        {"nested", QVariantMap{{"a/b", QVariantList{true, QVariantMap{{"", QByteArray("\0x", 2)}}}}}, {},
         QMetaType::QVariantMap},
    };
    // clang-format on
    for (const auto format : {VKPropertyListFormat::XML, VKPropertyListFormat::Binary}) {
        for (const auto &c : cases) {
            SCOPED_TRACE(std::string(c.name) +
                         (format == VKPropertyListFormat::XML ? " xml" : " binary"));
            const QVariant back = roundTrip(c.value, format);
            EXPECT_EQ(back.typeId(), c.typeId);
            EXPECT_EQ(back, c.expected.isNull() ? c.value : c.expected);
        }
    }
}

TEST(PropertyList, DatesKeepMillisecondsInBinaryAndSecondsInXml)
{
    // Milliseconds from the reference date, written and as read back from XML; the years 2200
    // and 1800 lie beyond the 32-bit seconds that libplist's own date calls take.
    // clang-format off
    const struct { const char *name; qint64 msecs, xmlMsecs; } cases[] = {
        {"reference", 0, 0}, {"fraction", 1500, 1000}, {"negative fraction", -2250, -2000},
        {"fraction before the reference", -250, 0}, {"year 2200", 6279811200250LL, 6279811200000LL},
        {"year 1800", -6342969600000LL, -6342969600000LL},
    };
    // clang-format on
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const QDateTime date = kReference.addMSecs(c.msecs);
        const QDateTime binary = roundTrip(date, VKPropertyListFormat::Binary).toDateTime();
        EXPECT_EQ(binary, date);
        EXPECT_EQ(binary.timeSpec(), Qt::UTC);
        EXPECT_EQ(kReference.msecsTo(roundTrip(date, VKPropertyListFormat::XML).toDateTime()),
                  c.xmlMsecs);
    }
}

TEST(PropertyList, UidsAreKeptInBinaryOnly)
{
    const QVariant uid = QVariant::fromValue(VKPropertyListUID{12});
    EXPECT_EQ(roundTrip(QVariantList{uid}, VKPropertyListFormat::Binary), QVariantList{uid});
    EXPECT_TRUE(VKPropertyList::propertyListIsValidForFormat(uid, VKPropertyListFormat::Binary));
    EXPECT_FALSE(VKPropertyList::propertyListIsValidForFormat(uid, VKPropertyListFormat::XML));
}

TEST(PropertyList, WhatCannotBeWrittenFailsNamingWhere)
{
    // clang-format off
    const struct { const char *name; QVariant value; QString description; } cases[] = {
        {"null", QVariant(), "a null value at the root"},
        {"other type", QVariantMap{{"size", QSize(1, 2)}}, "a value of type QSize at /size"},
        {"nested in a list", QVariantList{1, QVariantList{QVariant()}}, "a null value at /1/0"},
        {"NUL in a string", QVariantMap{{"k", QString::fromUtf8("a\0b", 3)}},
         "a string holding a NUL character at /k"},
        {"NUL in a key", QVariantMap{{QString::fromUtf8("a\0b", 3), 1}},
         "a key holding a NUL character at /" + QString::fromUtf8("a\0b", 3)},
        {"invalid date", QDateTime(), "an invalid date at the root"},
    };
    // clang-format on
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        VKError error;
        EXPECT_TRUE(
            VKPropertyList::dataWithPropertyList(c.value, VKPropertyListFormat::Binary, &error)
                .isEmpty());
        EXPECT_EQ(error.domain(), VQErrorDomainVessanUtilities);
        EXPECT_EQ(error.code(), VKPropertyListWriteInvalidError);
        EXPECT_EQ(error.localizedDescription(),
                  "Property list invalid for format: " + c.description);
    }
}

// Hand-made nested binary lists; defined with the keyed-archive tests.
QByteArray nestedArrays(uint32_t levels, bool loop);

TEST(PropertyList, WhatIsNoPropertyListFailsToRead)
{
    const QByteArray binary = VKPropertyList::dataWithPropertyList(
        QVariantMap{{"a", QVariantList{1, 2, 3}}}, VKPropertyListFormat::Binary);
    // A string whose four-byte length field is then made to say 100 MB.
    QByteArray huge =
        VKPropertyList::dataWithPropertyList(QString(70000, u'x'), VKPropertyListFormat::Binary);
    huge.replace(QByteArray("\x5f\x12\x00\x01\x11\x70", 6),
                 QByteArray("\x5f\x12\x06\x40\x00\x00", 6));
    // clang-format off
    const struct { const char *name; QByteArray data; } cases[] = {
        {"empty", QByteArray()}, {"text", "hello"}, {"binary magic only", "bplist00"},
        {"truncated binary", binary.left(binary.size() - 10)}, {"100 MB length field", huge},
        {"unclosed xml", "<?xml version=\"1.0\"?><plist><dict><key>a</key>"},
        {"NUL in an xml key", "<plist><dict><key>a&#x00;b</key><true/></dict></plist>"},
        // {"a\0b": 1}: libplist asserts on such a key.
        {"NUL in a binary key", QByteArray("bplist00\xd1\x01\x02\x53"
                                           "a\0b\x10\x01\x08\x0b\x0f",
                                           20) +
                                    QByteArray(6, '\0') + QByteArray("\x01\x01", 2) +
                                    QByteArray(7, '\0') + "\x03" + QByteArray(15, '\0') + "\x11"},
        // libplist recurses without a limit on both of these and overflows the stack.
        {"arrays nested 200000 deep", nestedArrays(200000, false)},
        {"arrays that contain each other", nestedArrays(3, true)},
    };
    // clang-format on
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        VKError error;
        EXPECT_TRUE(VKPropertyList::propertyListWithData(c.data, nullptr, &error).isNull());
        EXPECT_EQ(error.code(), VKPropertyListReadCorruptError);
    }
}

TEST(PropertyList, FilesAreReadAndWrittenWhole)
{
    VKTempDir dir;
    const QString path = dir.filePath("Info.plist");
    const QVariantMap dictionary{{"CFBundleIdentifier", "com.example.tool"}, {"n", 3}};
    VKError error;
    ASSERT_TRUE(
        VKPropertyList::writePropertyList(dictionary, path, VKPropertyListFormat::XML, &error));
    EXPECT_EQ(VKPropertyList::dictionaryWithContentsOfFile(path, &error),
              (QVariantMap{{"CFBundleIdentifier", "com.example.tool"}, {"n", qlonglong(3)}}));

    // A failed write leaves the old file as it was.
    EXPECT_FALSE(
        VKPropertyList::writePropertyList(QVariant(), path, VKPropertyListFormat::XML, &error));
    EXPECT_TRUE(VKPropertyList::dictionaryWithContentsOfFile(path).has_value());
    EXPECT_FALSE(VKPropertyList::writePropertyList(dictionary, dir.filePath("none/x.plist"),
                                                   VKPropertyListFormat::XML, &error));
    EXPECT_EQ(error.code(), VKFileWriteUnknownError);

    EXPECT_FALSE(VKPropertyList::dictionaryWithContentsOfFile(dir.filePath("missing"), &error));
    EXPECT_EQ(error.code(), VKFileReadNoSuchFileError);
    const QString list = dir.filePath("list.plist");
    ASSERT_TRUE(
        VKPropertyList::writePropertyList(QVariantList{1}, list, VKPropertyListFormat::Binary));
    EXPECT_FALSE(VKPropertyList::dictionaryWithContentsOfFile(list, &error));
    EXPECT_EQ(error.code(), VKPropertyListReadCorruptError);
    VKPropertyListFormat format{};
    EXPECT_EQ(VKPropertyList::propertyListWithContentsOfFile(list, &format), QVariantList{1});
    EXPECT_EQ(format, VKPropertyListFormat::Binary);
}
