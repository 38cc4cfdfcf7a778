// The timecode calculator: evaluates arithmetic over timestamps, frame counts and numbers as a
// user types it into a field, at one of the frame-rate codes, and shows the result as a clock
// timecode, metres of film or a frame count. Also reads and writes the text forms of timecodes.
#pragma once

#include "Foundation/VKExport.h"
#include "Timecode/VKFrameRate.h"

#include <QFlags>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <memory>
#include <optional>

class VKAttributedString;
class VKCalcPrivate;

// One recorded capture of the grammar, as the capture walk hands it to its callbacks and
// reduction handlers (and a whole match, for the beautifier's callbacks).
struct VK_EXPORT VKCalcCapture
{
    int group = 0;
    QString name; // empty for an unnamed group
    int level = 0;
    qsizetype location = 0;
    qsizetype length = 0;
    QString text;
};

// How an evaluation reads its text: strict time-preserving evaluation is no flag at all.
enum VKCalcEvaluationOption {
    VKCalcStrictEvaluation = 0x0,
    // Keep the duration of a timestamp written at another rate ("PT"); without it its frame
    // count is kept ("PF").
    VKCalcPreservingTime = 0x1,
    // Use the first match anywhere in the text instead of needing the whole text to match.
    VKCalcLazyEvaluation = 0x2,
};
Q_DECLARE_FLAGS(VKCalcEvaluationOptions, VKCalcEvaluationOption)
Q_DECLARE_OPERATORS_FOR_FLAGS(VKCalcEvaluationOptions)

// The grammar is matched with Oniguruma: the expression is parsed by matching it and evaluated
// by walking the tree of recorded captures and reducing on a value stack. Time-preserving ("PT")
// evaluation keeps the duration of a timestamp written at another rate; frame-preserving ("PF")
// keeps its frame count. Strict evaluation needs the whole text to match; lax ("lazy")
// evaluation uses the first match anywhere.
//
// Threads: evalPFToFrames() holds the calculator's recursive lock; everything else is meant for
// one thread at a time. The calculator is BasicLockable so that a caller can hold the lock over
// several calls (setFrameRate() then an evaluation). The compiled grammars are shared by every
// calculator of the process.
class VK_EXPORT VKCalc
{
public:
    VKCalc();
    ~VKCalc();
    VKCalc(const VKCalc &) = delete;
    VKCalc &operator=(const VKCalc &) = delete;

    // --- frame rate -------------------------------------------------------------------------
    // Stores the code and takes its nominal rate from the table; a code outside the table is
    // stored but leaves framerate() as it was.
    void setFps(VKFrameRateCode code);
    VKFrameRateCode fps() const;
    double framerate() const;
    // Chooses the code from a measured rate. Every rate above 49.99 selects VDCalc50fps (59.94
    // and 60 included). A rate no test accepts selects VDCalc24fps and is logged once per
    // distinct rate for the life of the process.
    void setFrameRate(float rate, bool drop);
    // Selects a code by its text code ("24" ... "59d"); answers false (and changes nothing) for
    // an unknown text.
    [[nodiscard]] bool setFpsWithTextCode(const QString &textCode);

    // --- evaluation ---------------------------------------------------------------------------
    [[nodiscard]] std::optional<double> evalPTToFrames(const QString &text);
    [[nodiscard]] std::optional<double> evalPFToFrames(const QString &text);
    [[nodiscard]] std::optional<double> lazyevalPTToFrames(const QString &text);
    [[nodiscard]] std::optional<double> lazyevalPFToFrames(const QString &text);
    // The four above by options.
    [[nodiscard]] std::optional<double> evaluateToFrames(const QString &text,
                                                         VKCalcEvaluationOptions options);

    // Evaluate and format for a display mode (VDCalcTime, VDCalcFilmLength, VDCalcDiskSpace,
    // anything else a frame count). A null string when the text does not evaluate. A result
    // beyond the mode's bound shows "∞" or "-∞"; a not-a-number result shows "nan".
    QString evalPT(const QString &text, VKDisplayMode displayMode);
    QString evalPF(const QString &text, VKDisplayMode displayMode);
    QString lazyevalPT(const QString &text, VKDisplayMode displayMode);
    QString lazyevalPF(const QString &text, VKDisplayMode displayMode);
    QString evaluate(const QString &text, VKDisplayMode displayMode,
                     VKCalcEvaluationOptions options);

    // The last displayed results, narrowed to float.
    float cachedResultPT() const;
    float cachedResultPF() const;

    // The grammars' texts.
    static QString calcRegexPT();
    static QString calcRegexPF();

    // Whether evaluations use the grammars compiled once for the process (the default) or
    // compile them on every call. Results are the same; the second is the slow reference.
    void setKeepsCompiledGrammar(bool keeps);
    bool keepsCompiledGrammar() const;

    // --- text forms ---------------------------------------------------------------------------
    // A clock timestamp (optionally with "|" and a text code) to frames at the current code.
    double framecountPTFromString(const QString &text) const;
    double framecountPFFromString(const QString &text) const;
    // A packed HHMMSSFF timestamp ("0100", "01000000|25"): only the last eight digits count.
    double framecountPTFromShortString(const QString &text) const;
    double framecountPFFromShortString(const QString &text) const;
    // The clock text of a frame count at the current code (drop-frame labels at 23d and 29d).
    QString stringFromFramecount(double framecount) const;
    // Frames from the clock fields of a text (see VKTimecodeText).
    double framecountFromTCString(const QString &text) const;

    // Rewrites typed timestamps as canonical "hh:mm:ss.ff|code" text (spaces removed).
    QString beautifyExpression(const QString &text) const;
    QString beautifyTimestampString(const QString &text) const;
    QString beautifyShortTimestampString(const QString &text) const;

    // The text with a red foreground before and after the part that lax evaluation uses and a
    // black one over that part; all red when nothing matches. Other attributes are kept.
    VKAttributedString colorizeLazyEvaluatedString(const VKAttributedString &text) const;

    // --- drop-frame counts --------------------------------------------------------------------
    // Real frame counts to drop-frame label counts and back, at 29.97 (30 fps labels) and at
    // 23.976 (24 fps labels, the same scheme). Callers pass non-negative counts; infinite and
    // not-a-number counts pass through, counts beyond ±2^62 are clamped.
    static double dropFCfrom29realFC(double framecount);
    static double realFCfrom29dropFC(double framecount);
    static double dropFCfrom23realFC(double framecount);
    static double realFCfrom23dropFC(double framecount);

    // --- lock ---------------------------------------------------------------------------------
    void lock();
    void unlock();
    bool try_lock();

    // --- internals kept for compatibility -----------------------------------------------------
    // The value stack, the capture walk's callbacks, the reduction handlers (one per recorded
    // group, "reduce_<name>") and the beautifier's replacement callbacks are public only because
    // callers of the calculator's original form reach them by name. New code evaluates through
    // the operations above and does not call these.

    // A value is a double or the text of a plain number.
    void push(const QVariant &value);
    // The last value, or a null QVariant when the stack is empty.
    QVariant pop();
    qsizetype stackDepth() const;
    // A value's numeric value: a number as it is, a text read as a decimal number after white
    // space (the longest numeric prefix), nothing as 0.
    static double numericValue(const QVariant &value);

    void visitAtFirstCapture(const VKCalcCapture &capture);
    // Calls the reduction handler of the capture's group name ("reduce_<name>").
    void visitAtLastCapture(const VKCalcCapture &capture);
    void reduce_tss1(const VKCalcCapture &capture);
    void reduce_tss2(const VKCalcCapture &capture);
    void reduce_tsm1(const VKCalcCapture &capture);
    void reduce_tsm2(const VKCalcCapture &capture);
    void reduce_tsm3(const VKCalcCapture &capture);
    void reduce_zm1(const VKCalcCapture &capture);
    void reduce_zm2(const VKCalcCapture &capture);
    // zs1 (left + right) and zs2 (left - right) name groups that no rule of the grammar
    // records, so the walk never calls them; they stay because their names are part of the
    // calculator's interface.
    void reduce_zs1(const VKCalcCapture &capture);
    void reduce_zs2(const VKCalcCapture &capture);
    void reduce_z2(const VKCalcCapture &capture);
    void reduce_ts1PT(const VKCalcCapture &capture);
    void reduce_ts1PF(const VKCalcCapture &capture);
    void reduce_ts2PT(const VKCalcCapture &capture);
    void reduce_ts2PF(const VKCalcCapture &capture);

    QString beautifyTimestamp(const VKCalcCapture &match, void *contextInfo) const;
    QString beautifyShortTimestamp(const VKCalcCapture &match, void *contextInfo) const;

    // The structure of a mode's compiled grammar: its number of groups, and the name of each
    // named group by group number (a name may number several groups).
    static int grammarGroupCount(bool preservingTime);
    static QMap<int, QString> grammarGroupNames(bool preservingTime);
    // The group names the walk has a reduction handler for.
    static QStringList reductionHandlerNames();

private:
    double framecountFromString(const QString &text, bool preservingTime) const;
    std::optional<double> evaluateUnlocked(const QString &text, VKCalcEvaluationOptions options);
    void pushBinary(double (*operation)(double, double));

    std::unique_ptr<VKCalcPrivate> d;
};
