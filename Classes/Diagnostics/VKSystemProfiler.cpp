#include "Diagnostics/VKSystemProfiler.h"

#include "Diagnostics/VKHost.h"
#include "Diagnostics/VKSystemInfo.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>

#include <sys/sysinfo.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace {

constexpr qint32 kCPUTypeX86 = 7;
constexpr qint32 kCPUTypePowerPC = 18;
constexpr qint32 kCPUTypeARM = 12;
constexpr qint32 kCPUTypeARM64 = 0x0100000C;
constexpr qint32 kCPUSubtypeX86All = 3;

QByteArray readSmallFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return file.read(1 << 20);
}

// The value of the first "name : value" line of /proc/cpuinfo.
std::optional<QByteArray> cpuInfoField(const QByteArray &cpuInfo, const QByteArray &name)
{
    for (const QByteArray &line : cpuInfo.split('\n')) {
        const qsizetype colon = line.indexOf(':');
        if (colon > 0 && line.left(colon).trimmed() == name)
            return line.mid(colon + 1).trimmed();
    }
    return std::nullopt;
}

QVariantMap row(const char *key, const char *displayKey, const QVariant &value,
                const QVariant &displayValue)
{
    return {{QStringLiteral("key"), QString::fromLatin1(key)},
            {QStringLiteral("displayKey"), QString::fromLatin1(displayKey)},
            {QStringLiteral("value"), value},
            {QStringLiteral("displayValue"), displayValue}};
}

} // namespace

VKSystemFacts VKSystemFacts::current()
{
    VKSystemFacts facts;
    const QString version = VKHost::systemVersionString();
    if (!version.isNull())
        facts.systemVersionString = version;

    const QByteArray cpuInfo = readSmallFile(QStringLiteral("/proc/cpuinfo"));
    utsname name{};
    if (uname(&name) == 0) {
        const QByteArray machine(name.machine);
        const bool is64 = machine.contains("64");
        if (machine == "x86_64" ||
            (machine.size() == 4 && machine.startsWith('i') && machine.endsWith("86"))) {
            facts.cpuType = kCPUTypeX86;
            facts.cpuSubtype = kCPUSubtypeX86All;
            const auto flags = cpuInfoField(cpuInfo, "flags");
            facts.cpu64Bit = (flags ? flags->split(' ').contains("lm") : is64) ? 1 : 0;
        } else if (machine.startsWith("ppc")) {
            facts.cpuType = kCPUTypePowerPC;
            facts.cpu64Bit = is64 ? 1 : 0;
            const QByteArray cpu = cpuInfoField(cpuInfo, "cpu").value_or(QByteArray());
            if (cpu.startsWith("PPC970"))
                facts.cpuSubtype = 100;
            else if (cpu.startsWith("7447") || cpu.startsWith("7448") || cpu.startsWith("7450"))
                facts.cpuSubtype = 11;
            else if (cpu.startsWith("74"))
                facts.cpuSubtype = 10;
            else if (cpu.startsWith("750"))
                facts.cpuSubtype = 9;
            else
                facts.cpuSubtype = 0;
        } else if (machine == "aarch64" || machine.startsWith("arm")) {
            facts.cpuType = machine == "aarch64" ? kCPUTypeARM64 : kCPUTypeARM;
            facts.cpu64Bit = is64 ? 1 : 0;
            facts.cpuSubtype = 0;
        }
    }

    const QByteArray model = readSmallFile(QStringLiteral("/sys/class/dmi/id/product_name"));
    if (!model.trimmed().isEmpty())
        facts.model = QString::fromUtf8(model.trimmed());

    const long cpus = sysconf(_SC_NPROCESSORS_ONLN);
    if (cpus > 0)
        facts.cpuCount = qint32(cpus);

    facts.languages = QLocale().uiLanguages();

    bool ok = false;
    const qint64 kHz =
        readSmallFile(QStringLiteral("/sys/devices/system/cpu/cpu0/cpufreq/cpuinfo_max_freq"))
            .trimmed()
            .toLongLong(&ok);
    if (ok && kHz > 0) {
        facts.cpuFrequencyMHz = qint32(kHz / 1000);
    } else if (const auto mhz = cpuInfoField(cpuInfo, "cpu MHz")) {
        const double value = mhz->toDouble(&ok);
        if (ok && value > 0)
            facts.cpuFrequencyMHz = qint32(value);
    }

    struct sysinfo memory
    {
    };
    if (sysinfo(&memory) == 0)
        facts.memoryMB = qint32(quint64(memory.totalram) * memory.mem_unit / (1024 * 1024));
    return facts;
}

VKSystemProfiler::VKSystemProfiler()
{
    QFile table(QStringLiteral(":/VessanUtilities/SUModelTranslation.json"));
    if (table.open(QIODevice::ReadOnly))
        m_modelTable = QJsonDocument::fromJson(table.readAll()).object().toVariantMap();
}

VKSystemProfiler &VKSystemProfiler::sharedSystemProfiler()
{
    static VKSystemProfiler *profiler = new VKSystemProfiler;
    return *profiler;
}

QVariantMap VKSystemProfiler::modelTranslationTable() const
{
    return m_modelTable;
}

QVariantList VKSystemProfiler::systemProfileArrayForHost(const VKHost &host) const
{
    return systemProfileArray(host.name(), host.version());
}

QVariantList VKSystemProfiler::systemProfileArray(const QString &applicationName,
                                                  const QString &applicationVersion) const
{
    return systemProfileArray(VKSystemFacts::current(), applicationName, applicationVersion);
}

QVariantList VKSystemProfiler::systemProfileArray(const VKSystemFacts &facts,
                                                  const QString &applicationName,
                                                  const QString &applicationVersion) const
{
    QVariantList rows;
    if (facts.systemVersionString && !facts.systemVersionString->isNull())
        rows << row("osVersion", "OS Version", *facts.systemVersionString,
                    *facts.systemVersionString);

    // The type read first decides the subtype's text; without it the subtype is "Other".
    const qint32 type = facts.cpuType.value_or(-1);
    if (facts.cpuType) {
        const char *text = type == kCPUTypeX86       ? "Intel"
                           : type == kCPUTypePowerPC ? "PowerPC"
                                                     : "Unknown";
        rows << row("cputype", "CPU Type", *facts.cpuType, QString::fromLatin1(text));
    }
    const bool is64 = facts.cpu64Bit && *facts.cpu64Bit == 1;
    if (facts.cpu64Bit)
        rows << row("cpu64bit", "CPU is 64-Bit?", is64,
                    is64 ? QStringLiteral("Yes") : QStringLiteral("No"));
    if (facts.cpuSubtype) {
        const qint32 subtype = *facts.cpuSubtype;
        QString text = QStringLiteral("Other");
        if (type == kCPUTypeX86) {
            text = is64 ? QStringLiteral("Intel Core 2") : QStringLiteral("Intel Core");
        } else if (type == kCPUTypePowerPC) {
            if (subtype == 100)
                text = QStringLiteral("G5");
            else if (subtype == 10 || subtype == 11)
                text = QStringLiteral("G4");
            else if (subtype == 9)
                text = QStringLiteral("G3");
        }
        rows << row("cpusubtype", "CPU Subtype", subtype, text);
    }
    if (facts.model) {
        const QVariant translated = m_modelTable.value(*facts.model);
        rows << row("model", "Mac Model", *facts.model,
                    translated.isValid() ? translated.toString() : *facts.model);
    }
    if (facts.cpuCount)
        rows << row("ncpu", "Number of CPUs", *facts.cpuCount, *facts.cpuCount);
    if (!facts.languages.isEmpty())
        rows << row("lang", "Preferred Language", facts.languages.first(), facts.languages.first());
    if (!applicationName.isNull())
        rows << row("appName", "Application Name", applicationName, applicationName);
    if (!applicationVersion.isNull())
        rows << row("appVersion", "Application Version", applicationVersion, applicationVersion);
    if (facts.cpuFrequencyMHz)
        rows << row("cpuFreqMHz", "CPU Speed (GHz)", *facts.cpuFrequencyMHz,
                    *facts.cpuFrequencyMHz / 1000.0);
    if (facts.memoryMB)
        rows << row("ramMB", "Memory (MB)", *facts.memoryMB, *facts.memoryMB);
    return rows;
}
