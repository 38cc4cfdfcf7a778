#include "Timecode/VKTimecode.h"

#include "Foundation/VKAttributedString.h"
#include "Foundation/VKError.h"
#include "Foundation/VKException.h"
#include "Foundation/VKFormat.h"
#include "Timecode/VKCalc.h"
#include "Timecode/VKTimecodeText.h"

#include <cmath>
#include <limits>
#include <mutex>

namespace {

qint64 saturatedAdd(qint64 a, qint64 b)
{
    qint64 sum;
    if (__builtin_add_overflow(a, b, &sum))
        return b > 0 ? std::numeric_limits<qint64>::max() : std::numeric_limits<qint64>::min();
    return sum;
}

// The shared calculator's strict frame-preserving result for `text` at (fps, drop).
std::optional<double> evaluated(const QString &text, float fps, bool drop)
{
    const std::shared_ptr<VKCalc> calc = VKTimecode::sharedCalc();
    std::lock_guard<VKCalc> guard(*calc);
    calc->setFrameRate(fps, drop);
    return calc->evalPFToFrames(text);
}

// Why `text` is not an expression: the part of it that lax evaluation would use, if any.
QString notAnExpressionReason(const QString &text)
{
    VKCalc calc;
    const VKAttributedString coloured = calc.colorizeLazyEvaluatedString(VKAttributedString(text));
    const QColor black(Qt::black);
    for (const VKAttributedString::Run &run : coloured.runs()) {
        if (coloured.foregroundColorAtIndex(run.range.location) == black)
            return QStringLiteral("“%1” is not a timecode expression; only “%2” in it is.")
                .arg(text, text.mid(run.range.location, run.range.length));
    }
    return QStringLiteral("“%1” is not a timecode expression.").arg(text);
}

} // namespace

VKTimecode::VKTimecode(qint64 frame, float fps, bool drop)
    : m_frame(frame), m_fps(fps), m_drop(drop)
{}

VKTimecode::VKTimecode(int hours, int minutes, int seconds, int frames, float fps, bool drop)
    : m_fps(fps), m_drop(drop)
{
    const qint64 clock = (qint64(hours) * 60 + minutes) * 60 + seconds;
    const double product = double(clock) * std::round(double(fps));
    m_frame = saturatedAdd(VKTimecodeText::truncatedToInt64(product), frames);
}

VKTimecode::VKTimecode(const QString &text, float fps, bool drop) : m_fps(fps), m_drop(drop)
{
    const std::optional<double> result = evaluated(text, fps, drop);
    m_frame = result ? VKTimecodeText::truncatedToInt64(*result) : 0;
}

std::optional<VKTimecode> VKTimecode::timecodeFromString(const QString &text, float fps, bool drop,
                                                         VKError *error)
{
    const std::optional<double> result = evaluated(text, fps, drop);
    if (!result) {
        VKError::fill(error, VKError::errorWithDescription(VQErrorDomainVessanUtilities, 1,
                                                           notAnExpressionReason(text)));
        return std::nullopt;
    }
    if (!std::isfinite(*result)) {
        VKError::fill(error, VKError::errorWithDescription(
                                 VQErrorDomainVessanUtilities, 2,
                                 QStringLiteral("“%1” gives no finite frame count.").arg(text)));
        return std::nullopt;
    }
    return VKTimecode(VKTimecodeText::truncatedToInt64(*result), fps, drop);
}

VKTimecode VKTimecode::timecodeWithFrame(qint64 frame, float fps, bool drop)
{
    return VKTimecode(frame, fps, drop);
}

VKTimecode VKTimecode::timecodeWithString(const QString &text, float fps, bool drop)
{
    return VKTimecode(text, fps, drop);
}

VKTimecode VKTimecode::timecodeByAddingTimecode(const VKTimecode &other, bool preservingTime,
                                                float fps, bool drop) const
{
    if (m_drop)
        VKException::raise(VKUnsupportedParameter,
                           "Drop frames are not supported by VKTimecode yet");
    if (!preservingTime)
        return VKTimecode(saturatedAdd(m_frame, other.m_frame), fps, drop);
    const float seconds = float(other.m_frame) / other.m_fps + float(m_frame) / m_fps;
    return VKTimecode(VKTimecodeText::truncatedToInt64(double(seconds * fps)), fps, drop);
}

QString VKTimecode::timecodeString() const
{
    double v = double(m_frame);
    const bool negative = m_frame < 0;
    if (negative)
        v = -v;
    if (m_drop && std::fabs(m_fps - 23.98f) < 0.01f)
        v = VKCalc::dropFCfrom23realFC(v);
    if (m_drop && std::fabs(m_fps - 29.97f) < 0.01f)
        v = VKCalc::dropFCfrom29realFC(v);
    return VKTimecodeText::clockString(negative, v, std::floor(double(m_fps) + 0.5));
}

QString VKTimecode::description() const
{
    return vkFormat("%@ (%.2f, %i)", timecodeString(), double(m_fps), m_drop ? 1 : 0);
}

bool VKTimecode::isEqual(const VKTimecode &other) const
{
    if (this == &other)
        return true;
    return m_fps == other.m_fps && m_drop == other.m_drop && m_frame == other.m_frame;
}

std::shared_ptr<VKCalc> VKTimecode::sharedCalc()
{
    // Made once (thread-safe static initialisation) and deliberately never destroyed, so that
    // timecodes built while the process exits still find it.
    static std::shared_ptr<VKCalc> *calc = new std::shared_ptr<VKCalc>(std::make_shared<VKCalc>());
    return *calc;
}

size_t qHash(const VKTimecode &timecode, size_t seed) noexcept
{
    // 0.0 and -0.0 are equal, so they hash alike.
    const float fps = timecode.fps() == 0.0f ? 0.0f : timecode.fps();
    return qHashMulti(seed, timecode.frame(), fps, timecode.drop());
}
