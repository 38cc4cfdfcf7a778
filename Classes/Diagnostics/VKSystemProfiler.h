// A list of labelled facts about the machine and the host application for reports: operating
// system version, processor, model, memory, language, application name and version.
//
// Each row is a map with exactly the keys "key", "displayKey", "value" and "displayValue".
// A fact the system cannot give leaves its row out. The facts come from VKSystemFacts, which
// reads Linux's sources and which tests fill by hand.
#pragma once

#include "Foundation/VKExport.h"

#include <QString>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

#include <optional>

class VKHost;

// What the profile is built from. Processor types use the kernel-variable numbering the rows
// know: 7 is x86 (Intel), 18 PowerPC; other processors have other numbers.
struct VK_EXPORT VKSystemFacts
{
    std::optional<QString> systemVersionString; // VKHost::systemVersionString()
    std::optional<qint32> cpuType;              // from uname's machine
    std::optional<qint32> cpu64Bit;   // 1 when 64-bit capable ("lm" flag, or a 64-bit machine)
    std::optional<qint32> cpuSubtype; // x86: 3; PowerPC: 100 G5, 10/11 G4, 9 G3 from /proc/cpuinfo
    std::optional<QString> model;     // /sys/class/dmi/id/product_name
    std::optional<qint32> cpuCount;   // online processors (sysconf)
    QStringList languages;            // QLocale::uiLanguages()
    std::optional<qint32> cpuFrequencyMHz; // cpufreq's maximum, else "cpu MHz" of /proc/cpuinfo
    std::optional<qint32> memoryMB;        // sysinfo's total memory

    // This machine's facts.
    static VKSystemFacts current();
};

class VK_EXPORT VKSystemProfiler
{
public:
    // Made on first use, never released.
    static VKSystemProfiler &sharedSystemProfiler();

    // Raw model identifiers to marketing names, from the shipped "SUModelTranslation" table.
    QVariantMap modelTranslationTable() const;

    // The rows for this machine and the host's name and version (version() throws for a host
    // without one).
    QVariantList systemProfileArrayForHost(const VKHost &host) const;
    // The rows for this machine and an application; a null name or version leaves its row out.
    QVariantList systemProfileArray(const QString &applicationName,
                                    const QString &applicationVersion) const;
    // The rows for given facts.
    QVariantList systemProfileArray(const VKSystemFacts &facts, const QString &applicationName,
                                    const QString &applicationVersion) const;

    VKSystemProfiler(const VKSystemProfiler &) = delete;
    VKSystemProfiler &operator=(const VKSystemProfiler &) = delete;

private:
    VKSystemProfiler();
    QVariantMap m_modelTable;
};
