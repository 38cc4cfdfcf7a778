// A timecode value: a signed frame count with the frame rate it is meant at and a drop-frame
// flag. Nothing normalises it (a count beyond 24 hours stays as it is).
#pragma once

#include "Foundation/VKExport.h"

#include <QHashFunctions>
#include <QMetaType>
#include <QString>

#include <memory>
#include <optional>

class VKCalc;
class VKError;

class VK_EXPORT VKTimecode
{
public:
    // Frame 0 at fps 0 without drop.
    VKTimecode() = default;
    VKTimecode(qint64 frame, float fps, bool drop);
    // frame = truncate(((hours × 60 + minutes) × 60 + seconds) × round(fps)) + frames. The drop
    // flag is stored but does not alter the count.
    VKTimecode(int hours, int minutes, int seconds, int frames, float fps, bool drop);
    // Evaluates `text` (any calculator expression: "01:00:00.00+10", "01000000|25") with the
    // shared calculator in strict frame-preserving mode at (fps, drop). Text that does not
    // evaluate gives frame 0. The calculator is held locked from choosing the rate to reading
    // the result, so threads building timecodes at different rates do not mix their rates.
    VKTimecode(const QString &text, float fps, bool drop);

    static VKTimecode timecodeWithFrame(qint64 frame, float fps, bool drop);
    static VKTimecode timecodeWithString(const QString &text, float fps, bool drop);
    // The same evaluation, for callers that must tell a bad text from frame 0: nothing when the
    // text does not evaluate or gives no finite frame count, with `error` (if not null) saying
    // why in the library's domain (code 1: not an expression, 2: no finite count).
    [[nodiscard]] static std::optional<VKTimecode>
    timecodeFromString(const QString &text, float fps, bool drop, VKError *error = nullptr);

    qint64 frame() const { return m_frame; }
    void setFrame(qint64 frame) { m_frame = frame; }
    float fps() const { return m_fps; }
    void setFps(float fps) { m_fps = fps; }
    bool drop() const { return m_drop; }
    void setDrop(bool drop) { m_drop = drop; }

    // A new timecode at (fps, drop). Without preservingTime the counts are added as they are;
    // with it the two durations are added in real time (32-bit float arithmetic) and expressed
    // at fps. Raises VKUnsupportedParameter when the receiver is drop-frame.
    VKTimecode timecodeByAddingTimecode(const VKTimecode &other, bool preservingTime, float fps,
                                        bool drop) const;

    // "hh:mm:ss.ff", drop-frame labels at 23.976 and 29.97 when drop is set. See
    // VKTimecodeText::clockString for rates that give no finite clock.
    QString timecodeString() const;
    // "01:00:00.00 (25.00, 0)".
    QString description() const;

    // Equal frames, drop flags and fps (a float comparison: NaN equals nothing, except that an
    // object is always equal to itself).
    bool isEqual(const VKTimecode &other) const;
    bool operator==(const VKTimecode &other) const { return isEqual(other); }
    bool operator!=(const VKTimecode &other) const { return !isEqual(other); }

    // The calculator every timecode parses text with; made on first use, never destroyed.
    static std::shared_ptr<VKCalc> sharedCalc();

private:
    qint64 m_frame = 0;
    float m_fps = 0.0f;
    bool m_drop = false;
};

VK_EXPORT size_t qHash(const VKTimecode &timecode, size_t seed = 0) noexcept;

template <>
struct std::hash<VKTimecode>
{
    size_t operator()(const VKTimecode &timecode) const noexcept { return qHash(timecode); }
};

Q_DECLARE_METATYPE(VKTimecode)
