// Arbitrary text through every evaluation, display, reader, writer, beautifier and the
// colouring, at every frame-rate code (and one outside the table).
#include "Foundation/VKAttributedString.h"
#include "Timecode/VKCalc.h"
#include "Timecode/VKTimecode.h"

#include <QString>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1)
        return 0;
    // The first byte picks how the rest becomes text: UTF-8, or raw UTF-16 code units (which
    // reaches lone surrogates and every code point).
    const bool utf16 = data[0] & 1;
    const QString text =
        utf16 ? QString::fromUtf16(reinterpret_cast<const char16_t *>(data + 1),
                                   qsizetype((size - 1) / 2))
              : QString::fromUtf8(reinterpret_cast<const char *>(data + 1), qsizetype(size - 1));
    static VKCalc calc;
    for (qint32 code = 0; code <= 11; ++code) {
        calc.setFps(VKFrameRateCode(code));
        for (VKDisplayMode mode :
             {VDCalcTime, VDCalcFilmLength, VDCalcDiskSpace, VKCalcFrameCount}) {
            calc.evalPT(text, mode);
            calc.evalPF(text, mode);
            calc.lazyevalPT(text, mode);
            calc.lazyevalPF(text, mode);
        }
        calc.framecountPTFromString(text);
        calc.framecountPFFromString(text);
        calc.framecountPTFromShortString(text);
        calc.framecountPFFromShortString(text);
        calc.framecountFromTCString(text);
        calc.beautifyExpression(text);
        calc.beautifyTimestampString(text);
        calc.beautifyShortTimestampString(text);
        const double count = calc.framecountPFFromString(text);
        calc.stringFromFramecount(count);
        calc.stringFromFramecount(-count);
    }
    calc.colorizeLazyEvaluatedString(VKAttributedString(text));
    if (calc.stackDepth() != 0)
        __builtin_trap(); // a walk must leave the stack as it found it
    const VKTimecode timecode(text, 29.97f, true);
    timecode.timecodeString();
    VKTimecode(text, float(size % 64), false).timecodeString();
    return 0;
}
