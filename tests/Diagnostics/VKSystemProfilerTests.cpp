#include "Diagnostics/VKSystemInfo.h"
#include "Diagnostics/VKSystemProfiler.h"

#include "VKTestSupport.h"

#include <QFile>
#include <QLocale>

#include <gtest/gtest.h>

#include <sys/sysinfo.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace {

QVariantMap rowFor(const QVariantList &rows, const QString &key)
{
    for (const QVariant &r : rows) {
        if (r.toMap().value("key") == key)
            return r.toMap();
    }
    return {};
}

// "key | display key | value | display value" of each row, texts in quotes; a row with other
// entries too is marked.
QStringList texts(const QVariantList &rows)
{
    QStringList list;
    for (const QVariant &r : rows) {
        const QVariantMap row = r.toMap();
        QStringList cells{row.value("key").toString(), row.value("displayKey").toString()};
        for (const QVariant &v : {row.value("value"), row.value("displayValue")})
            cells << (v.metaType().id() == QMetaType::QString ? '"' + v.toString() + '"'
                                                              : v.toString());
        list << cells.join(" | ") + (row.size() == 4 ? "" : " (and more)");
    }
    return list;
}

VKSystemFacts fullFacts()
{
    VKSystemFacts f;
    f.systemVersionString = "12";
    f.cpuType = 7;
    f.cpu64Bit = 1;
    f.cpuSubtype = 3;
    f.model = "MacPro6,1";
    f.cpuCount = 8;
    f.languages = {"en-GB", "fi"};
    f.cpuFrequencyMHz = 2400;
    f.memoryMB = 16384;
    return f;
}

} // namespace

TEST(VKSystemProfiler, RowsInOrderWithExactTexts)
{
    const auto &profiler = VKSystemProfiler::sharedSystemProfiler();
    const QVariantList rows = profiler.systemProfileArray(fullFacts(), "MyApp", "1.2");
    EXPECT_EQ(
        texts(rows),
        QStringList(
            {"osVersion | OS Version | \"12\" | \"12\"", "cputype | CPU Type | 7 | \"Intel\"",
             "cpu64bit | CPU is 64-Bit? | true | \"Yes\"",
             "cpusubtype | CPU Subtype | 3 | \"Intel Core 2\"",
             "model | Mac Model | \"MacPro6,1\" | \"Mac Pro (Late 2013)\"",
             "ncpu | Number of CPUs | 8 | 8", "lang | Preferred Language | \"en-GB\" | \"en-GB\"",
             "appName | Application Name | \"MyApp\" | \"MyApp\"",
             "appVersion | Application Version | \"1.2\" | \"1.2\"",
             "cpuFreqMHz | CPU Speed (GHz) | 2400 | 2.4", "ramMB | Memory (MB) | 16384 | 16384"}));
}

TEST(VKSystemProfiler, ProcessorAndModelRules)
{
    struct Case
    {
        const char *name;
        std::optional<qint32> type, is64, subtype;
        QString typeText, subtypeText;
    } cases[] = {
        {"Intel 32-bit", 7, 0, 4, "Intel", "Intel Core"},
        {"PowerPC G5", 18, 1, 100, "PowerPC", "G5"},
        {"PowerPC G4 (10)", 18, 0, 10, "PowerPC", "G4"},
        {"PowerPC G4 (11)", 18, 0, 11, "PowerPC", "G4"},
        {"PowerPC 12", 18, 0, 12, "PowerPC", "Other"},
        {"PowerPC G3", 18, 0, 9, "PowerPC", "G3"},
        {"ARM64", 0x0100000C, 1, 2, "Unknown", "Other"},
        {"type query failed", std::nullopt, 1, 100, QString(), "Other"},
    };
    for (const Case &c : cases) {
        VKSystemFacts f = fullFacts();
        f.cpuType = c.type;
        f.cpu64Bit = c.is64;
        f.cpuSubtype = c.subtype;
        const QVariantList rows =
            VKSystemProfiler::sharedSystemProfiler().systemProfileArray(f, "A", "1");
        EXPECT_EQ(rowFor(rows, "cputype").value("displayValue").toString(), c.typeText) << c.name;
        EXPECT_EQ(rowFor(rows, "cpusubtype").value("displayValue").toString(), c.subtypeText)
            << c.name;
    }
    VKSystemFacts f;
    f.model = "Unheard1,1";
    const QVariantList rows =
        VKSystemProfiler::sharedSystemProfiler().systemProfileArray(f, QString(), QString());
    EXPECT_EQ(texts(rows), QStringList{"model | Mac Model | \"Unheard1,1\" | \"Unheard1,1\""})
        << "failed sources and null names leave rows out";
}

TEST(VKSystemProfiler, ThisMachine)
{
    const VKSystemFacts f = VKSystemFacts::current();
    ASSERT_TRUE(f.cpuCount && f.memoryMB);
    EXPECT_EQ(*f.cpuCount, sysconf(_SC_NPROCESSORS_ONLN));
    struct sysinfo info
    {
    };
    ASSERT_EQ(sysinfo(&info), 0);
    EXPECT_EQ(*f.memoryMB, qint64(quint64(info.totalram) * info.mem_unit >> 20));
    EXPECT_EQ(f.languages, QLocale().uiLanguages());
    utsname name{};
    ASSERT_EQ(uname(&name), 0);
    if (QByteArray(name.machine) == "x86_64") {
        EXPECT_EQ(f.cpuType, 7);
        EXPECT_EQ(f.cpu64Bit, 1);
    }
    QFile dmi("/sys/class/dmi/id/product_name");
    EXPECT_EQ(f.model.has_value(),
              dmi.open(QIODevice::ReadOnly) && !dmi.readAll().trimmed().isEmpty());
    const QVariantList rows =
        VKSystemProfiler::sharedSystemProfiler().systemProfileArray("MyApp", "1.0");
    EXPECT_EQ(rowFor(rows, "ncpu").value("value"), *f.cpuCount);
}

TEST(VKSystemInfo, ReleaseFromProductVersion)
{
    struct Case
    {
        const char *version;
        int expected;
    } cases[] = {{"10.9.5", 109}, {"10.10.1", 0}, {"10.2", 102}, {"10.5.8", 105},
                 {"12", 0},       {"", 0},        {"9.10", 0}};
    for (const Case &c : cases)
        EXPECT_EQ(VKSystemInfo::osVersionForProductVersion(c.version), c.expected) << c.version;

    VKTempDir dir;
    const QString file = dir.writeFile("os-release", "NAME=\"X\"\nVERSION_ID=\"10.10.1\"\n");
    VKSystemInfo::setOSReleasePathForTesting(file);
    EXPECT_EQ(VKSystemInfo::sharedInfo().osVersion(), 0);
    dir.writeFile("os-release", "VERSION_ID=10.9.5\n");
    EXPECT_EQ(VKSystemInfo::sharedInfo().osVersion(), 109) << "0 is not cached";
    dir.writeFile("os-release", "VERSION_ID=10.4\n");
    EXPECT_EQ(VKSystemInfo::sharedInfo().osVersion(), 109) << "a non-zero answer is";
    VKSystemInfo::setOSReleasePathForTesting(QString());
}
