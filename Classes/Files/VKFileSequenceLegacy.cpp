// The operations of VKFileSequence kept for older callers.
#include "Files/VKFileSequence.h"

#include "Foundation/VKLogger.h"

#include <QStringList>

#include <cstdlib>
#include <cxxabi.h>
#include <execinfo.h>

namespace {

// One line per frame of the current call stack, innermost first, with C++ names demangled
// where the symbol table has them: "2   test_Files   0x000055d1c0a1b2c3   Foo::bar() + 0x1d".
QStringList callStackSymbols()
{
    void *frames[128];
    const int count = ::backtrace(frames, 128);
    char **symbols = ::backtrace_symbols(frames, count);
    QStringList lines;
    for (int i = 0; i < count; ++i) {
        // backtrace_symbols writes "object(symbol+offset) [address]".
        const QString raw = symbols ? QString::fromLocal8Bit(symbols[i]) : QString();
        const qsizetype open = raw.indexOf(u'(');
        const qsizetype plus = raw.indexOf(u'+', open);
        const qsizetype close = raw.indexOf(u')', open);
        QString object = open > 0 ? raw.first(open) : raw;
        object = object.mid(object.lastIndexOf(u'/') + 1);
        QString symbol;
        QString offset;
        if (open >= 0 && plus > open && close > plus) {
            const QByteArray mangled = raw.sliced(open + 1, plus - open - 1).toLocal8Bit();
            offset = raw.sliced(plus + 1, close - plus - 1);
            int status = -1;
            char *demangled = mangled.isEmpty()
                                  ? nullptr
                                  : abi::__cxa_demangle(mangled.constData(), nullptr, nullptr, &status);
            symbol = status == 0 && demangled ? QString::fromLocal8Bit(demangled)
                                              : QString::fromLocal8Bit(mangled);
            std::free(demangled);
        }
        QString line = QStringLiteral("%1   %2   0x%3")
                           .arg(i, -3)
                           .arg(object)
                           .arg(quintptr(frames[i]), 16, 16, QLatin1Char('0'));
        if (!symbol.isEmpty())
            line += QStringLiteral("   %1 + %2").arg(symbol, offset);
        lines.append(line);
    }
    std::free(symbols);
    return lines;
}

} // namespace

quint64 VKFileSequence::duration() const
{
    return numberOfFiles();
}

QString VKFileSequence::filenameForRelativeFrameNumber(quint64 index) const
{
    const VKLogContext context{QStringLiteral("VKFileSequence"),
                               QStringLiteral("-[VKFileSequence filenameForRelativeFrameNumber:]"),
                               this};
    VKLogger::error(context,
                    QStringLiteral("Message \"filenameForRelativeFrameNumber\" is deprecated, "
                                   "called by\u2026"));
    VKLogger::error(context, "%@", callStackSymbols());
    return filePathForRelativeFrameNumber(index);
}
