#include "Timecode/VKFrameRate.h"

#include <bit>
#include <cstdint>

const QList<VKFrameRateInfo> &VKFrameRate::allFrameRates()
{
    static const QList<VKFrameRateInfo> table = {
        {VDCalc24fps, 24.0, QStringLiteral("24"), false},
        {VDCalc25fps, 25.0, QStringLiteral("25"), false},
        {VDCalc30fps, 30.0, QStringLiteral("30"), false},
        {VDCalc23drop, 24.0, QStringLiteral("23d"), true},
        {VDCalc29drop, 30.0, QStringLiteral("29d"), true},
        {VDCalc23nondrop, std::bit_cast<double>(std::uint64_t(0x4037F851EB85208CULL)),
         QStringLiteral("23n"), false},
        {VDCalc29nondrop, 29.97, QStringLiteral("29n"), false},
        {VDCalc50fps, 50.0, QStringLiteral("50"), false},
        {VDCalc60fps, 60.0, QStringLiteral("60"), false},
        {VDCalc59nondrop, std::bit_cast<double>(std::uint64_t(0x404DF853E2556B29ULL)),
         QStringLiteral("59n"), false},
        {VDCalc59drop, 60.0, QStringLiteral("59d"), true},
    };
    return table;
}

std::optional<VKFrameRateInfo> VKFrameRate::infoForCode(VKFrameRateCode code)
{
    const QList<VKFrameRateInfo> &table = allFrameRates();
    if (code < 0 || code >= table.size())
        return std::nullopt;
    return table[code];
}

std::optional<VKFrameRateCode> VKFrameRate::codeForTextCode(const QString &textCode)
{
    for (const VKFrameRateInfo &info : allFrameRates()) {
        if (info.textCode == textCode)
            return info.code;
    }
    return std::nullopt;
}

QString VKFrameRate::textCodeForCode(VKFrameRateCode code)
{
    const std::optional<VKFrameRateInfo> info = infoForCode(code);
    return info ? info->textCode : QString();
}
