// The calculator's frame-rate codes and display modes, and the table that gives each code its
// nominal rate, its text code (the "|" suffix of timestamps) and its drop-frame flag.
#pragma once

#include "Foundation/VKExport.h"

#include <QList>
#include <QString>

#include <optional>

// Frame-rate codes. The numbering is part of the interface: 60 comes before 59.94 and the
// 59.94 drop code is last. A variable of the type may hold a value outside the list (the
// calculator stores such a code and keeps its rate).
enum VKFrameRateCode : qint32 {
    VDCalc24fps = 0,
    VDCalc25fps = 1,
    VDCalc30fps = 2,
    VDCalc23drop = 3,
    VDCalc29drop = 4,
    VDCalc23nondrop = 5,
    VDCalc29nondrop = 6,
    VDCalc50fps = 7,
    VDCalc60fps = 8,
    VDCalc59nondrop = 9,
    VDCalc59drop = 10,
};

// Display modes of the calculator. Any other value shows a bare frame count; VKCalcFrameCount
// is a name for that case.
enum VKDisplayMode : qint32 {
    VDCalcTime = 0,
    VDCalcFilmLength = -1,
    VDCalcDiskSpace = -2,
    VKCalcFrameCount = 1,
};

// One row of the frame-rate table.
struct VK_EXPORT VKFrameRateInfo
{
    VKFrameRateCode code = VDCalc24fps;
    // The rate every seconds-to-frames conversion uses. Drop codes store the whole rate (24, 30,
    // 60); the 23.97 and 59.94 non-drop rates are the exact doubles 0x4037F851EB85208C and
    // 0x404DF853E2556B29, not 24000/1001 and 60000/1001.
    double nominalRate = 24.0;
    QString textCode;
    bool drop = false;
};

class VK_EXPORT VKFrameRate
{
public:
    // The eleven codes in code order.
    static const QList<VKFrameRateInfo> &allFrameRates();
    // Nothing for a code outside the table.
    static std::optional<VKFrameRateInfo> infoForCode(VKFrameRateCode code);
    // "24" ... "59d" to its code; nothing for an unknown text (exact, case-sensitive).
    static std::optional<VKFrameRateCode> codeForTextCode(const QString &textCode);
    // The text code of a code, or a null string for a code outside the table.
    static QString textCodeForCode(VKFrameRateCode code);
};
