#include "Timecode/VKCalc.h"

#include "Foundation/VKAttributedString.h"
#include "Foundation/VKLogger.h"
#include "Timecode/VKRegex_p.h"
#include "Timecode/VKTimecodeText.h"

#include <QHash>
#include <QSet>

#include <bit>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <limits>
#include <mutex>

namespace {

using Handler = void (VKCalc::*)(const VKCalcCapture &);

// The grammar is written as named pieces and assembled once. In the rule and group patterns
// below, "{name}" stands for the recorded group of that name, "(?@<name>pattern)", and "{rate}"
// for the rate suffixes that timestamps may carry; brace pairs with digits are the engine's own
// quantifiers.

// The rate suffixes the grammar accepts after "|" (50, 59d, 59n and 60 are not among them).
const char16_t *const kGrammarRateCodes[] = {u"24", u"25", u"30", u"23d", u"29d", u"23n", u"29n"};

// The rules, called by name with \g<name>. Each is defined with "{0}", so that it matches nothing
// where it stands; the pattern itself is one call of tss.
struct Rule
{
    const char16_t *name;
    const char16_t *pattern;
};
// clang-format off
const Rule kRules[] = {
    {u"tss", uR"((\g<tsm>(?:{tss1}|{tss2})*)|(\g<zm>(?:{tss1}|{tss2})*))"},  // sum
    {u"tsm", uR"((\g<z>{tsm1})|(\g<ts>(?:{tsm2}|{tsm3})*))"},                 // timestamp product
    {u"zm", uR"(\g<z>(?:{zm1}|{zm2})*)"},                                      // number product
    {u"ts", uR"((\s*\(\g<tss>\)\s*)|{ts2}|{ts1}\s*)"},                         // timestamp
    {u"z", uR"(\(\g<tss>\)|{z2})"},                                            // number
};
// clang-format on

// The recorded groups and their reductions. ts1 and ts2 are named after the mode (ts1PT or
// ts1PF) and reduce with the mode's reader. zs1 and zs2 have handlers but no pattern: no rule
// records them.
struct RecordedGroup
{
    const char16_t *name;
    const char16_t *pattern; // null: not part of the grammar
    Handler timePreserving;
    Handler framePreserving; // null: the same handler in both modes, under the same name
};
// clang-format off
const RecordedGroup kRecordedGroups[] = {
    {u"tss1", uR"(\+(\g<tsm>|\g<zm>))", &VKCalc::reduce_tss1, nullptr},
    {u"tss2", uR"(\-(\g<tsm>|\g<zm>))", &VKCalc::reduce_tss2, nullptr},
    {u"tsm1", uR"({tsm2}*\*\g<ts>{tsm2}*)", &VKCalc::reduce_tsm1, nullptr},
    {u"tsm2", uR"(\*\g<z>)", &VKCalc::reduce_tsm2, nullptr},
    {u"tsm3", uR"(/\g<z>)", &VKCalc::reduce_tsm3, nullptr},
    {u"zm1", uR"(\*\g<z>)", &VKCalc::reduce_zm1, nullptr},
    {u"zm2", uR"(/\g<z>)", &VKCalc::reduce_zm2, nullptr},
    {u"zs1", nullptr, &VKCalc::reduce_zs1, nullptr},
    {u"zs2", nullptr, &VKCalc::reduce_zs2, nullptr},
    {u"z2", uR"(\s*[123456789]{1}\d*(?:\.\d*)?\s*)", &VKCalc::reduce_z2, nullptr},
    // A clock with optional leading zeros, hours and minutes; or a frame count with its rate.
    {u"ts2",
     uR"((\s*0*(?:(?:\d{0,2}:)?\d{0,2})?:\d{1,2}(?:\.\d{1,2}{rate}?)?)\s*|(\s*[123456789]{1,1}\d+{rate}{1,1})\s*)",
     &VKCalc::reduce_ts2PT, &VKCalc::reduce_ts2PF},
    // A packed HHMMSSFF timestamp: "0" and up to eight digits.
    {u"ts1", uR"(\s*0\d{1,8}{rate}?)", &VKCalc::reduce_ts1PT, &VKCalc::reduce_ts1PF},
};
// clang-format on

// A recorded group's name in a mode's grammar.
QString recordedName(const RecordedGroup &group, bool preservingTime)
{
    QString name = QString::fromUtf16(group.name);
    if (group.framePreserving)
        name += preservingTime ? u"PT" : u"PF";
    return name;
}

QString rateSuffixPattern()
{
    QStringList alternatives;
    for (const char16_t *code : kGrammarRateCodes)
        alternatives.append(QStringLiteral(R"((?:\|)") + QString::fromUtf16(code) + u')');
    return QStringLiteral("(?:") + alternatives.join(u'|') + u')';
}

// Replaces every "{name}" of `pattern` by its recorded group (recursively) or the rate suffix.
QString expandPattern(QStringView pattern, bool preservingTime)
{
    QString out;
    qsizetype i = 0;
    while (i < pattern.size()) {
        const qsizetype close = pattern.indexOf(u'}', i);
        if (pattern[i] == u'{' && close > i + 1 && pattern[i + 1].isLetter()) {
            const QStringView name = pattern.sliced(i + 1, close - i - 1);
            if (name == u"rate") {
                out += rateSuffixPattern();
            } else {
                for (const RecordedGroup &group : kRecordedGroups) {
                    if (name == QStringView(group.name) && group.pattern) {
                        out += QStringLiteral("(?@<") + recordedName(group, preservingTime) + u'>' +
                               expandPattern(group.pattern, preservingTime) + u')';
                        break;
                    }
                }
            }
            i = close + 1;
        } else {
            out += pattern[i++];
        }
    }
    return out;
}

QString grammarText(bool preservingTime)
{
    QString text = QStringLiteral(R"(\g<tss>)");
    for (const Rule &rule : kRules)
        text += QStringLiteral("(?<") + QString::fromUtf16(rule.name) + u'>' +
                expandPattern(rule.pattern, preservingTime) + QStringLiteral("){0}");
    return text;
}

// Every recorded name of both modes to its handler.
const QHash<QString, Handler> &reductionHandlers()
{
    static const QHash<QString, Handler> handlers = [] {
        QHash<QString, Handler> table;
        for (const RecordedGroup &group : kRecordedGroups) {
            table.insert(recordedName(group, true), group.timePreserving);
            if (group.framePreserving)
                table.insert(recordedName(group, false), group.framePreserving);
        }
        return table;
    }();
    return handlers;
}

// Typed clock forms with at least two colons (the possessive quantifiers leave "1:30" and
// ":30" alone), and packed short forms.
const char16_t kTimestampPattern[] =
    uR"VK(0*((\d{0,2}:)?+\d{0,2})?+:\d{1,2}(\.\d{1,2}(\|\d{2,2}(d|n)?)?+)?+)VK";
const char16_t kShortTimestampPattern[] = uR"VK(\b0\d{2,8}(\|\d{1,2}(d|n)?)?)VK";

// The grammars compiled once for the process; a compiled pattern is searched from any thread.
const VKRegex &keptGrammar(bool preservingTime)
{
    static const VKRegex pt(grammarText(true), VKRegex::Options::CaptureHistory);
    static const VKRegex pf(grammarText(false), VKRegex::Options::CaptureHistory);
    return preservingTime ? pt : pf;
}

const VKRegex &timestampPattern()
{
    static const VKRegex regex(QString::fromUtf16(kTimestampPattern), VKRegex::Options::Default);
    return regex;
}

const VKRegex &shortTimestampPattern()
{
    static const VKRegex regex(QString::fromUtf16(kShortTimestampPattern),
                               VKRegex::Options::Default);
    return regex;
}

// The kept grammar, or a freshly compiled one (held by `fresh`) for the reference variant.
const VKRegex &grammar(bool preservingTime, bool keep, std::unique_ptr<VKRegex> &fresh)
{
    if (keep)
        return keptGrammar(preservingTime);
    fresh =
        std::make_unique<VKRegex>(grammarText(preservingTime), VKRegex::Options::CaptureHistory);
    return *fresh;
}

VKLogContext logContext(const VKCalc *calc, const char *operation)
{
    return {QStringLiteral("VKCalc"), QStringLiteral("-[VKCalc %1]").arg(QLatin1String(operation)),
            calc};
}

// Rates already reported as unknown, for the whole process (compared as floats; every
// not-a-number value counts as one rate).
std::mutex &reportedRatesMutex()
{
    static std::mutex mutex;
    return mutex;
}

QSet<std::uint32_t> &reportedRates()
{
    static QSet<std::uint32_t> rates;
    return rates;
}

std::uint32_t rateKey(float rate)
{
    if (std::isnan(rate))
        return 0x7FC00000u;
    if (rate == 0.0f)
        return 0u;
    return std::bit_cast<std::uint32_t>(rate);
}

// Drop-frame conversions. The steps are those of 32-bit C integer arithmetic (truncating
// division, remainder with the sign of the dividend); they run in 64 bits, which gives the same
// results wherever 32 bits do not overflow and keeps larger counts defined.
constexpr qint64 kDropClamp = qint64(1) << 62;

qint64 oneBased(double x)
{
    const double rounded = std::trunc(x + 0.5);
    const qint64 n = rounded >= double(kDropClamp)    ? kDropClamp
                     : rounded <= -double(kDropClamp) ? -kDropClamp
                                                      : qint64(rounded);
    return n + 1;
}

double realToLabel(double x, qint64 block, qint64 minute)
{
    if (!std::isfinite(x))
        return x;
    const qint64 n = oneBased(x);
    const qint64 q = n / block;
    qint64 r = n % block;
    qint64 result = n + 18 * q;
    r -= 2;
    if (r > 0)
        result += 2 * ((r - 1) / minute);
    return double(result - 1);
}

double labelToReal(double x, qint64 block, qint64 minute)
{
    if (!std::isfinite(x))
        return x;
    const qint64 n = oneBased(x);
    const qint64 q = n / block;
    qint64 r = n % block;
    qint64 result = n - 18 * q;
    r -= 2;
    if (r > 0) {
        const qint64 q2 = r / minute;
        const qint64 r2 = r % minute;
        result -= 2 * q2;
        if (r2 == minute - 1)
            result -= 1;
    }
    return double(result - 1);
}

// A typed drop-frame label becomes a real count at the drop codes.
double labelToRealAtCode(double v, VKFrameRateCode code)
{
    if (code == VDCalc23drop)
        return VKCalc::realFCfrom23dropFC(v);
    if (code == VDCalc29drop)
        return VKCalc::realFCfrom29dropFC(v);
    return v;
}

double nominal23n()
{
    return std::bit_cast<double>(std::uint64_t(0x4037F851EB85208CULL));
}

// Seconds from fields read right to left (seconds, minutes, hours, then further powers of 60).
double sixtiesSum(const QList<double> &numbers, qsizetype count)
{
    double v = 0.0;
    double w = 1.0;
    for (qsizetype i = count - 1; i >= 0; --i) {
        v += numbers[i] * w;
        w *= 60.0;
    }
    return v;
}

// "hh:mm:ss.ff" (and the "|" suffix) from packed HHMMSSFF digits: only the last eight count.
QString packedToClock(const QString &text, qsizetype zeros)
{
    const QString buffer = QString(zeros, u'0') + text;
    const qsizetype bar = buffer.indexOf(u'|');
    const qsizetype end = bar >= 0 ? bar : buffer.size();
    QString clock = buffer.mid(end - 8, 2) + u':' + buffer.mid(end - 6, 2) + u':' +
                    buffer.mid(end - 4, 2) + u'.' + buffer.mid(end - 2, 2);
    if (bar >= 0)
        clock += QStringView(buffer).mid(bar);
    return clock;
}

// double to float the way the hardware rounds, without leaving float's range undefined.
float narrowed(double value)
{
    if (std::isfinite(value) && std::fabs(value) > double(FLT_MAX)) {
        // Halfway between FLT_MAX and 2^128 rounds to infinity (ties to even).
        const float limit =
            std::fabs(value) < 0x1.ffffffp127 ? FLT_MAX : std::numeric_limits<float>::infinity();
        return value < 0 ? -limit : limit;
    }
    return static_cast<float>(value);
}

int saturatedInt(double value)
{
    if (!(value < 2147483647.0))
        return std::isnan(value) ? 0 : std::numeric_limits<int>::max();
    return int(value);
}

} // namespace

class VKCalcPrivate
{
public:
    std::recursive_mutex lock;
    QList<QVariant> stack;
    double framerate = 24.0;
    VKFrameRateCode fps = VDCalc24fps;
    float cachedResultPT = 0.0f;
    float cachedResultPF = 0.0f;
    bool keepsCompiledGrammar = true;
};

VKCalc::VKCalc() : d(std::make_unique<VKCalcPrivate>())
{
    d->stack.reserve(10);
}

VKCalc::~VKCalc() = default;

// --- frame rate -------------------------------------------------------------------------------

void VKCalc::setFps(VKFrameRateCode code)
{
    d->fps = code;
    if (const std::optional<VKFrameRateInfo> info = VKFrameRate::infoForCode(code))
        d->framerate = info->nominalRate;
}

VKFrameRateCode VKCalc::fps() const
{
    return d->fps;
}

double VKCalc::framerate() const
{
    return d->framerate;
}

bool VKCalc::setFpsWithTextCode(const QString &textCode)
{
    const std::optional<VKFrameRateCode> code = VKFrameRate::codeForTextCode(textCode);
    if (!code)
        return false;
    setFps(*code);
    return true;
}

float VKCalc::cachedResultPT() const
{
    return d->cachedResultPT;
}

float VKCalc::cachedResultPF() const
{
    return d->cachedResultPF;
}

void VKCalc::setKeepsCompiledGrammar(bool keeps)
{
    d->keepsCompiledGrammar = keeps;
}

bool VKCalc::keepsCompiledGrammar() const
{
    return d->keepsCompiledGrammar;
}

void VKCalc::lock()
{
    d->lock.lock();
}

void VKCalc::unlock()
{
    d->lock.unlock();
}

bool VKCalc::try_lock()
{
    return d->lock.try_lock();
}

void VKCalc::setFrameRate(float rate, bool drop)
{
    // The bounds are float constants except the upper bounds of the two drop-frame rows.
    if (rate > 23.96f && rate < 23.98)
        setFps(drop ? VDCalc23drop : VDCalc23nondrop);
    else if (rate > 23.99f && rate < 24.01f)
        setFps(VDCalc24fps);
    else if (rate > 24.99f && rate < 25.01f)
        setFps(VDCalc25fps);
    else if (rate > 29.96f && rate < 29.98)
        setFps(drop ? VDCalc29drop : VDCalc29nondrop);
    else if (rate > 29.99f && rate < 30.01f)
        setFps(VDCalc30fps);
    // No upper bound: 59.94 and 60 land here too, and the two rows below are never reached.
    else if (rate > 49.99f)
        setFps(VDCalc50fps);
    else if (rate > 59.93f && rate < 59.95f)
        setFps(drop ? VDCalc59drop : VDCalc59nondrop);
    else if (rate > 59.99f && rate < 60.01f)
        setFps(VDCalc60fps);
    else {
        bool firstReport = false;
        {
            std::lock_guard<std::mutex> guard(reportedRatesMutex());
            const std::uint32_t key = rateKey(rate);
            if (!reportedRates().contains(key)) {
                reportedRates().insert(key);
                firstReport = true;
            }
        }
        if (firstReport) {
            VKLogger::error(logContext(this, "setFrameRate:drop:"),
                            "Unknown framerate: %f this message will only be logged once",
                            double(rate));
        }
        setFps(VDCalc24fps);
    }
}

// --- evaluation -------------------------------------------------------------------------------

QString VKCalc::calcRegexPT()
{
    return grammarText(true);
}

QString VKCalc::calcRegexPF()
{
    return grammarText(false);
}

int VKCalc::grammarGroupCount(bool preservingTime)
{
    return keptGrammar(preservingTime).numberOfGroups();
}

QMap<int, QString> VKCalc::grammarGroupNames(bool preservingTime)
{
    QMap<int, QString> names;
    const QHash<int, QString> &groups = keptGrammar(preservingTime).groupNames();
    for (auto it = groups.cbegin(); it != groups.cend(); ++it)
        names.insert(it.key(), it.value());
    return names;
}

QStringList VKCalc::reductionHandlerNames()
{
    QStringList names = reductionHandlers().keys();
    names.sort();
    return names;
}

std::optional<double> VKCalc::evaluateUnlocked(const QString &text, VKCalcEvaluationOptions options)
{
    const bool preservingTime = options.testFlag(VKCalcPreservingTime);
    std::unique_ptr<VKRegex> fresh;
    const VKRegex &regex = grammar(preservingTime, d->keepsCompiledGrammar, fresh);
    const VKRegex::Match match = regex.search(text);
    if (!match.found())
        return std::nullopt;
    if (!options.testFlag(VKCalcLazyEvaluation) && match.length() != text.size())
        return std::nullopt;
    const QHash<int, QString> &names = regex.groupNames();
    match.walkCaptureTree([&](const VKRegex::Node &node, bool atLast) {
        VKCalcCapture capture;
        capture.group = node.group;
        capture.name = names.value(node.group);
        capture.level = node.level;
        capture.location = node.location;
        capture.length = node.length;
        capture.text = text.mid(node.location, node.length);
        if (atLast)
            visitAtLastCapture(capture);
        else
            visitAtFirstCapture(capture);
    });
    return numericValue(pop());
}

std::optional<double> VKCalc::evaluateToFrames(const QString &text, VKCalcEvaluationOptions options)
{
    if (options == VKCalcStrictEvaluation)
        return evalPFToFrames(text);
    return evaluateUnlocked(text, options);
}

std::optional<double> VKCalc::evalPTToFrames(const QString &text)
{
    return evaluateUnlocked(text, VKCalcPreservingTime);
}

std::optional<double> VKCalc::evalPFToFrames(const QString &text)
{
    // The result is popped under the lock too, so that another thread's evaluation cannot
    // push between this walk and its pop.
    std::lock_guard<std::recursive_mutex> guard(d->lock);
    return evaluateUnlocked(text, VKCalcStrictEvaluation);
}

std::optional<double> VKCalc::lazyevalPTToFrames(const QString &text)
{
    return evaluateUnlocked(text, VKCalcPreservingTime | VKCalcLazyEvaluation);
}

std::optional<double> VKCalc::lazyevalPFToFrames(const QString &text)
{
    return evaluateUnlocked(text, VKCalcLazyEvaluation);
}

QString VKCalc::evaluate(const QString &text, VKDisplayMode displayMode,
                         VKCalcEvaluationOptions options)
{
    const std::optional<double> result = evaluateToFrames(text, options);
    if (!result)
        return QString();
    const float cached = narrowed(*result);
    (options.testFlag(VKCalcPreservingTime) ? d->cachedResultPT : d->cachedResultPF) = cached;
    const double value = cached;
    const QString infinity = QStringLiteral("∞");
    const QString negativeInfinity = QStringLiteral("-∞");
    if (std::isnan(value))
        return displayMode == VDCalcFilmLength ? QStringLiteral("nan m") : QStringLiteral("nan");
    if (displayMode == VDCalcTime || displayMode == VDCalcDiskSpace) {
        if (value > 86400750.0)
            return infinity;
        if (value < -86400750.0)
            return negativeInfinity;
        return stringFromFramecount(value);
    }
    if (displayMode == VDCalcFilmLength) {
        // The negative bound is deliberately not the mirror of the positive one.
        if (value > 52000000.0)
            return infinity;
        if (value < -5200004.0)
            return negativeInfinity;
        return vkFormat("%.2f m", value * 0.01923075);
    }
    const double bound = options.testFlag(VKCalcLazyEvaluation) ? 9999999999.0 : 999999999.0;
    if (value > bound)
        return infinity;
    if (value < -bound)
        return negativeInfinity;
    return vkFormat("%.0f", value);
}

QString VKCalc::evalPT(const QString &text, VKDisplayMode displayMode)
{
    return evaluate(text, displayMode, VKCalcPreservingTime);
}

QString VKCalc::evalPF(const QString &text, VKDisplayMode displayMode)
{
    return evaluate(text, displayMode, VKCalcStrictEvaluation);
}

QString VKCalc::lazyevalPT(const QString &text, VKDisplayMode displayMode)
{
    return evaluate(text, displayMode, VKCalcPreservingTime | VKCalcLazyEvaluation);
}

QString VKCalc::lazyevalPF(const QString &text, VKDisplayMode displayMode)
{
    return evaluate(text, displayMode, VKCalcLazyEvaluation);
}

// --- value stack ------------------------------------------------------------------------------

void VKCalc::push(const QVariant &value)
{
    d->stack.append(value);
}

QVariant VKCalc::pop()
{
    if (d->stack.isEmpty())
        return QVariant();
    return d->stack.takeLast();
}

qsizetype VKCalc::stackDepth() const
{
    return d->stack.size();
}

double VKCalc::numericValue(const QVariant &value)
{
    if (!value.isValid())
        return 0.0;
    if (value.metaType().id() == QMetaType::QString)
        return VKTimecodeText::leadingNumberValue(value.toString());
    return value.toDouble();
}

void VKCalc::pushBinary(double (*operation)(double, double))
{
    const double right = numericValue(pop());
    const double left = numericValue(pop());
    push(operation(left, right));
}

// --- capture walk -----------------------------------------------------------------------------

void VKCalc::visitAtFirstCapture(const VKCalcCapture &capture)
{
    // Nothing is reduced on the way down; children are complete only at the last visit.
    Q_UNUSED(capture);
}

void VKCalc::visitAtLastCapture(const VKCalcCapture &capture)
{
    if (capture.name.isEmpty())
        return;
    const Handler handler = reductionHandlers().value(capture.name, nullptr);
    if (handler)
        (this->*handler)(capture);
}

void VKCalc::reduce_tss1(const VKCalcCapture &)
{
    pushBinary([](double l, double r) { return l + r; });
}

void VKCalc::reduce_tss2(const VKCalcCapture &)
{
    pushBinary([](double l, double r) { return l - r; });
}

void VKCalc::reduce_tsm1(const VKCalcCapture &)
{
    pushBinary([](double l, double r) { return l * r; });
}

void VKCalc::reduce_tsm2(const VKCalcCapture &)
{
    pushBinary([](double l, double r) { return l * r; });
}

void VKCalc::reduce_tsm3(const VKCalcCapture &)
{
    pushBinary([](double l, double r) { return l / r; });
}

void VKCalc::reduce_zm1(const VKCalcCapture &)
{
    pushBinary([](double l, double r) { return l * r; });
}

void VKCalc::reduce_zm2(const VKCalcCapture &)
{
    pushBinary([](double l, double r) { return l / r; });
}

void VKCalc::reduce_zs1(const VKCalcCapture &)
{
    pushBinary([](double l, double r) { return l + r; });
}

void VKCalc::reduce_zs2(const VKCalcCapture &)
{
    pushBinary([](double l, double r) { return l - r; });
}

void VKCalc::reduce_z2(const VKCalcCapture &capture)
{
    push(capture.text);
}

void VKCalc::reduce_ts1PT(const VKCalcCapture &capture)
{
    push(framecountPTFromShortString(capture.text));
}

void VKCalc::reduce_ts1PF(const VKCalcCapture &capture)
{
    push(framecountPFFromShortString(capture.text));
}

void VKCalc::reduce_ts2PT(const VKCalcCapture &capture)
{
    push(framecountPTFromString(capture.text));
}

void VKCalc::reduce_ts2PF(const VKCalcCapture &capture)
{
    push(framecountPFFromString(capture.text));
}

// --- text forms -------------------------------------------------------------------------------

double VKCalc::framecountFromString(const QString &original, bool preservingTime) const
{
    QString text = original;
    text.remove(u' ');
    const QList<double> numbers = VKTimecodeText::digitRuns(text);
    const double wholeRate = std::floor(d->framerate + 0.5);
    const qsizetype bar = text.indexOf(u'|');
    if (bar < 0) {
        double v;
        if (!text.contains(u'.')) {
            v = sixtiesSum(numbers, numbers.size()) * wholeRate;
        } else if (numbers.isEmpty()) {
            v = 0.0;
        } else {
            v = sixtiesSum(numbers, numbers.size() - 1) * wholeRate + numbers.last();
        }
        return labelToRealAtCode(v, d->fps);
    }

    // With a rate suffix: the last number is the rate's digits, the one before the frames.
    const qsizetype count = numbers.size();
    const double frames = count >= 2 ? numbers[count - 2] : 0.0;
    const double seconds = count >= 3 ? sixtiesSum(numbers, count - 2) : 0.0;
    const QString suffix = text.mid(bar + 1);
    double v = seconds;
    VKFrameRateCode code = d->fps;
    if (preservingTime) {
        const double rate = d->framerate;
        const double rate23 = nominal23n();
        if (suffix == u"24")
            v = (seconds * 24 + frames) * rate / 24;
        else if (suffix == u"25")
            v = (seconds * 25 + frames) * rate / 25;
        else if (suffix == u"30")
            v = (seconds * 30 + frames) * rate / 30;
        else if (suffix == u"23d") {
            const double label = seconds * 24 + frames;
            if (d->fps == VDCalc23drop)
                v = label;
            else if (d->fps == VDCalc29drop)
                v = dropFCfrom29realFC(realFCfrom23dropFC(label) * 29.97 / rate23);
            else
                v = realFCfrom23dropFC(label) * rate / rate23;
        } else if (suffix == u"29d") {
            const double label = seconds * 30 + frames;
            if (d->fps == VDCalc29drop)
                v = label;
            else if (d->fps == VDCalc23drop)
                v = dropFCfrom23realFC(realFCfrom29dropFC(label) * rate23 / 29.97);
            else
                v = realFCfrom29dropFC(label) * rate / 29.97;
        } else if (suffix == u"23n")
            v = (seconds * 24 + frames) * rate / rate23;
        else if (suffix == u"29n")
            v = (seconds * 30 + frames) * rate / 29.97;
    } else {
        struct SuffixRate
        {
            const char16_t *suffix;
            double whole;
            VKFrameRateCode code;
        };
        static const SuffixRate rates[] = {
            {u"24", 24, VDCalc24fps},      {u"25", 25, VDCalc25fps},
            {u"30", 30, VDCalc30fps},      {u"23d", 24, VDCalc23drop},
            {u"29d", 30, VDCalc29drop},    {u"23n", 24, VDCalc23nondrop},
            {u"29n", 30, VDCalc29nondrop},
        };
        for (const SuffixRate &entry : rates) {
            if (suffix == QStringView(entry.suffix)) {
                v = seconds * entry.whole + frames;
                code = entry.code;
                break;
            }
        }
    }
    return labelToRealAtCode(v, code);
}

double VKCalc::framecountPTFromString(const QString &text) const
{
    return framecountFromString(text, true);
}

double VKCalc::framecountPFFromString(const QString &text) const
{
    return framecountFromString(text, false);
}

double VKCalc::framecountPTFromShortString(const QString &text) const
{
    return framecountPTFromString(packedToClock(text, 9));
}

double VKCalc::framecountPFFromShortString(const QString &text) const
{
    return framecountPFFromString(packedToClock(text, 9));
}

QString VKCalc::stringFromFramecount(double framecount) const
{
    double v = framecount;
    const bool negative = v < 0;
    if (negative)
        v = -v;
    if (d->fps == VDCalc23drop)
        v = dropFCfrom23realFC(std::fabs(v));
    else if (d->fps == VDCalc29drop)
        v = dropFCfrom29realFC(v);
    return VKTimecodeText::clockString(negative, v, std::floor(d->framerate + 0.5));
}

double VKCalc::framecountFromTCString(const QString &text) const
{
    const double wholeRate = std::floor(d->framerate + 0.5);
    const double hours = VKTimecodeText::hoursFromTimecodeString(text);
    const double minutes = VKTimecodeText::minutesFromTimecodeString(text);
    const double seconds = VKTimecodeText::secondsFromTimecodeString(text);
    const double frames = VKTimecodeText::framesFromTimecodeString(text);
    // R + 0.5 as the divisor is intended; the final rounding brings ordinary frames back.
    const double count = std::floor(
        (frames / (wholeRate + 0.5) + seconds + minutes * 60 + hours * 3600) * wholeRate + 0.5);
    return VKTimecodeText::timeStampNegative(text) ? -count : count;
}

QString VKCalc::beautifyExpression(const QString &original) const
{
    QString text = original;
    text.remove(u' ');
    text = timestampPattern().replaceEvery(text, [this](const QString &matched) {
        return beautifyTimestamp({0, QString(), 0, 0, matched.size(), matched}, nullptr);
    });
    return shortTimestampPattern().replaceEvery(text, [this](const QString &matched) {
        return beautifyShortTimestamp({0, QString(), 0, 0, matched.size(), matched}, nullptr);
    });
}

QString VKCalc::beautifyTimestamp(const VKCalcCapture &match, void *contextInfo) const
{
    Q_UNUSED(contextInfo);
    return beautifyTimestampString(match.text);
}

QString VKCalc::beautifyShortTimestamp(const VKCalcCapture &match, void *contextInfo) const
{
    Q_UNUSED(contextInfo);
    return beautifyShortTimestampString(match.text);
}

QString VKCalc::beautifyTimestampString(const QString &text) const
{
    QString suffix = VKFrameRate::textCodeForCode(d->fps);
    const QList<double> numbers = VKTimecodeText::digitRuns(text);
    int slots[5] = {0, 0, 0, 0, 0}; // scratch, frames, seconds, minutes, hours
    qsizetype offset = 2;
    if (text.contains(u'.')) {
        const qsizetype bar = text.indexOf(u'|');
        offset = bar >= 0 ? 0 : 1;
        if (bar >= 0)
            suffix = text.mid(bar + 1);
    }
    qsizetype slot = offset;
    for (qsizetype i = numbers.size() - 1; i >= 0 && slot < 5; --i)
        slots[slot++] = saturatedInt(numbers[i]);
    // A code outside the table has no text code: the timestamp then carries no suffix.
    if (suffix.isNull())
        return vkFormat("%2.2d:%2.2d:%2.2d.%2.2d", slots[4], slots[3], slots[2], slots[1]);
    return vkFormat("%2.2d:%2.2d:%2.2d.%2.2d|%@", slots[4], slots[3], slots[2], slots[1], suffix);
}

QString VKCalc::beautifyShortTimestampString(const QString &text) const
{
    return beautifyTimestampString(packedToClock(text, 8));
}

VKAttributedString VKCalc::colorizeLazyEvaluatedString(const VKAttributedString &text) const
{
    std::unique_ptr<VKRegex> fresh;
    const VKRegex &regex = grammar(true, d->keepsCompiledGrammar, fresh);
    const VKRegex::Match match = regex.search(text.string());
    VKAttributedString result = text;
    const QColor red(Qt::red);
    if (!match.found()) {
        result.setForegroundColor(red, {0, text.length()});
        return result;
    }
    result.setForegroundColor(red, {0, match.location()});
    result.setForegroundColor(QColor(Qt::black), {match.location(), match.length()});
    const qsizetype end = match.location() + match.length();
    result.setForegroundColor(red, {end, text.length() - end});
    return result;
}

// --- drop-frame counts ------------------------------------------------------------------------

double VKCalc::dropFCfrom29realFC(double framecount)
{
    return realToLabel(framecount, 17982, 1798);
}

double VKCalc::realFCfrom29dropFC(double framecount)
{
    return labelToReal(framecount, 18000, 1800);
}

double VKCalc::dropFCfrom23realFC(double framecount)
{
    return realToLabel(framecount, 14382, 1438);
}

double VKCalc::realFCfrom23dropFC(double framecount)
{
    return labelToReal(framecount, 14400, 1440);
}
