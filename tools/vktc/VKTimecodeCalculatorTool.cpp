#include "VKTimecodeCalculatorTool.h"

#include "Foundation/VKAttributedString.h"
#include "Foundation/VKError.h"
#include "Timecode/VKCalc.h"
#include "Timecode/VKFrameRate.h"
#include "Timecode/VKTimecode.h"
#include "VKToolSupport.h"

#include <QColor>

#include <cmath>
#include <iostream>
#include <string>

#include <unistd.h>

namespace {

const QString kRate = QStringLiteral("rate");
const QString kDrop = QStringLiteral("drop");
const QString kMode = QStringLiteral("mode");
const QString kPreserveFrames = QStringLiteral("preserve-frames");
const QString kLazy = QStringLiteral("lazy");
const QString kBeautify = QStringLiteral("beautify");
const QString kHelp = QStringLiteral("help");

// Used parts in the terminal's own colour, unused parts in red.
QString ansiColoured(const VKAttributedString &text)
{
    QString out;
    for (const VKAttributedString::Run &run : text.runs()) {
        const QString part = text.string().mid(run.range.location, run.range.length);
        const QColor colour = text.foregroundColorAtIndex(run.range.location);
        if (colour.isValid() && colour == QColor(Qt::red))
            out += QStringLiteral("\x1b[31m") + part + QStringLiteral("\x1b[39m");
        else
            out += part;
    }
    return out;
}

std::optional<VKDisplayMode> displayModeForName(const QString &name)
{
    if (name == QLatin1String("time"))
        return VDCalcTime;
    if (name == QLatin1String("film"))
        return VDCalcFilmLength;
    if (name == QLatin1String("disk"))
        return VDCalcDiskSpace;
    if (name == QLatin1String("frames"))
        return VKCalcFrameCount;
    return std::nullopt;
}

} // namespace

std::shared_ptr<VKApplicationConfiguration> VKTimecodeCalculatorTool::applicationConfiguration()
{
    VKApplicationOptionConfigurationList list;
    list.append(VKApplicationParameterConfiguration::parameterConfigurationWithLongIdentifier(
        kRate, QStringLiteral("r"),
        QStringLiteral("24 25 30 23d 29d 23n 29n 50 60 59n 59d, or a measured rate (29.97)"),
        VKApplicationParameterTypeString, QStringLiteral("rate")));
    list.append(VKApplicationOptionConfiguration::optionConfigurationWithLongIdentifier(
        kDrop, QStringLiteral("d"), QStringLiteral("Drop-frame counting for a measured rate")));
    list.append(VKApplicationParameterConfiguration::parameterConfigurationWithLongIdentifier(
        kMode, QStringLiteral("m"),
        QStringLiteral("time (default), film (metres), disk (as time) or frames"),
        VKApplicationParameterTypeString, QStringLiteral("mode")));
    list.append(VKApplicationOptionConfiguration::optionConfigurationWithLongIdentifier(
        kPreserveFrames, QStringLiteral("pf"),
        QStringLiteral("Keep the frame count of timestamps at other rates, not their duration")));
    list.append(VKApplicationOptionConfiguration::optionConfigurationWithLongIdentifier(
        kLazy, QStringLiteral("l"),
        QStringLiteral("Lax evaluation: use the first part that makes sense, ignore the rest")));
    list.append(VKApplicationOptionConfiguration::optionConfigurationWithLongIdentifier(
        kBeautify, QStringLiteral("b"),
        QStringLiteral("Print each expression with its timestamps written out in full")));
    list.append(VKApplicationOptionConfiguration::optionConfigurationWithLongIdentifier(
        kHelp, QStringLiteral("h"), QStringLiteral("Print this text")));
    return std::make_shared<VKApplicationConfiguration>(
        QStringLiteral("usage: vktc [options] [EXPRESSION ...]\n\n"
                       "Evaluates timecode expressions and prints one result per line. Without "
                       "expressions it reads\none expression per line from standard input."),
        QStringLiteral("EXPRESSIONS\n"
                       "\tTimestamps hh:mm:ss.ff (also mm:ss or :ss), packed 0HHMMSSFF, frame "
                       "counts and plain\n"
                       "\tnumbers, joined with + - * / and parentheses. A timestamp may name "
                       "its own rate:\n"
                       "\t00:00:10.00|25. A bare number added to a timestamp counts frames.\n\n"
                       "EXAMPLES\n"
                       "\tvktc -r 25 '01:30:00.00 + 00:00:01.00'\n"
                       "\tvktc -r 29d '00:00:59.29 + 1'\n"
                       "\tvktc -m frames '00:01:00.00 * 2'\n"
                       "\tvktc -b '1:30:00 + 0100'\n\n"
                       "EXIT STATUS\n"
                       "\t0 all expressions evaluated, 1 an expression did not evaluate, 2 usage "
                       "error."),
        list);
}

bool VKTimecodeCalculatorTool::process(VKCalc &calc, const QString &expression,
                                       const Settings &settings, bool echoColoured)
{
    if (settings.beautify) {
        vkToolWrite(stdout, calc.beautifyExpression(expression) + u'\n');
        return true;
    }
    if (echoColoured && settings.evaluation.testFlag(VKCalcLazyEvaluation)) {
        const VKAttributedString coloured =
            calc.colorizeLazyEvaluatedString(VKAttributedString(expression));
        vkToolWrite(stdout, QStringLiteral("  ") + ansiColoured(coloured) + u'\n');
    }
    const QString result = calc.evaluate(expression, settings.displayMode, settings.evaluation);
    if (result.isNull()) {
        // The timecode factory says why: what part of the text, if any, is an expression.
        VKError error;
        if (!VKTimecode::timecodeFromString(expression, float(calc.framerate()), false, &error))
            vkToolWrite(stderr, QStringLiteral("vktc: ") + error.localizedDescription() + u'\n');
        else
            vkToolWrite(stderr, QStringLiteral("vktc: cannot evaluate: ") + expression + u'\n');
        return false;
    }
    vkToolWrite(stdout, result + u'\n');
    return true;
}

int VKTimecodeCalculatorTool::readStandardInput(VKCalc &calc, const Settings &settings)
{
    const bool interactive = isatty(STDIN_FILENO) == 1;
    const bool colourOutput = interactive && isatty(STDOUT_FILENO) == 1;
    bool failed = false;
    std::string line;
    for (;;) {
        if (interactive) {
            vkToolWrite(stdout, QStringLiteral("vktc> "));
            std::fflush(stdout);
        }
        if (!std::getline(std::cin, line))
            break;
        QString expression = QString::fromStdString(line);
        if (expression.endsWith(u'\r'))
            expression.chop(1);
        if (expression.trimmed().isEmpty())
            continue;
        if (!process(calc, expression, settings, colourOutput))
            failed = true;
        std::fflush(stdout);
    }
    if (interactive)
        vkToolWrite(stdout, QStringLiteral("\n"));
    return failed ? 1 : 0;
}

void VKTimecodeCalculatorTool::application(VKApplication &application,
                                           const std::shared_ptr<VKApplicationArguments> &arguments)
{
    const auto finish = [&application](int code) { vkToolFinish(application, code); };
    const auto usageError = [&](const QString &message) {
        vkToolWrite(stderr, QStringLiteral("vktc: ") + message + u'\n');
        vkToolWrite(stderr, VKApplication::usageText(applicationConfiguration()));
        finish(2);
    };

    const QStringList options = arguments->options();
    const QVariantMap parameters = arguments->parameters();
    if (options.contains(kHelp)) {
        application.printUsage();
        finish(0);
        return;
    }

    VKCalc calc;
    const bool drop = options.contains(kDrop);
    if (parameters.contains(kRate)) {
        const QString rate = parameters.value(kRate).toString();
        if (const std::optional<VKFrameRateCode> code = VKFrameRate::codeForTextCode(rate)) {
            calc.setFps(*code);
            if (drop)
                vkToolWrite(stderr,
                            QStringLiteral("vktc: --drop applies to measured rates only; rate "
                                           "code %1 already says whether it drops\n")
                                .arg(rate));
        } else {
            bool ok = false;
            const double measured = rate.toDouble(&ok);
            if (!ok || !std::isfinite(measured) || measured <= 0) {
                usageError(QStringLiteral("unknown rate: ") + rate);
                return;
            }
            calc.setFrameRate(static_cast<float>(measured), drop);
        }
    }

    Settings settings;
    if (parameters.contains(kMode)) {
        const QString name = parameters.value(kMode).toString();
        const std::optional<VKDisplayMode> mode = displayModeForName(name);
        if (!mode) {
            usageError(QStringLiteral("unknown mode: ") + name);
            return;
        }
        settings.displayMode = *mode;
    }
    settings.evaluation.setFlag(VKCalcPreservingTime, !options.contains(kPreserveFrames));
    settings.evaluation.setFlag(VKCalcLazyEvaluation, options.contains(kLazy));
    settings.beautify = options.contains(kBeautify);

    const QStringList expressions = arguments->arguments();
    if (expressions.isEmpty()) {
        finish(readStandardInput(calc, settings));
        return;
    }
    bool failed = false;
    for (const QString &expression : expressions) {
        if (!process(calc, expression, settings, false))
            failed = true;
    }
    finish(failed ? 1 : 0);
}
