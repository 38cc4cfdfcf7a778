// The grouping of paths into runs against a plain reference written from the rules alone: sort
// with a numeric comparison that cuts digit runs out on every call, then walk the sorted list
// and work out frame, prefix and postfix of every path again. Random listings stress what the
// fast grouping takes shortcuts on: shared and nested prefixes, leading zeros, numbers beyond 64
// bits, non-ASCII digits, surrogate pairs, names differing only in case, duplicates.
#include "Files/VKFileSequence.h"
#include "Foundation/VKPathString.h"
#include "Foundation/VKStringRanges.h"

#include <gtest/gtest.h>

#include <QChar>

#include <algorithm>
#include <random>

using L = QStringList;

namespace {

// --- Reference ---

// One token of a string: a run of decimal digits (its significant digit values) or one UTF-16
// code unit that is not part of a digit.
struct Token
{
    bool digits = false;
    char16_t unit = 0;
    std::vector<int> value; // without leading zeros
};

// The decimal digit starting at `i` (a surrogate pair counts as one character), or -1.
int digitAt(const QString &s, qsizetype i, int &units)
{
    char32_t cp = s[i].unicode();
    units = 1;
    if (s[i].isHighSurrogate() && i + 1 < s.size() && s[i + 1].isLowSurrogate()) {
        cp = QChar::surrogateToUcs4(s[i], s[i + 1]);
        units = 2;
    }
    if (QChar::category(cp) != QChar::Number_DecimalDigit)
        return -1;
    return QChar::digitValue(cp);
}

std::vector<Token> tokens(const QString &s)
{
    std::vector<Token> result;
    for (qsizetype i = 0; i < s.size();) {
        int units = 1;
        if (digitAt(s, i, units) < 0) {
            result.push_back({false, s[i].unicode(), {}});
            ++i;
            continue;
        }
        Token run{true, 0, {}};
        for (int d; i < s.size() && (d = digitAt(s, i, units)) >= 0; i += units) {
            if (d != 0 || !run.value.empty())
                run.value.push_back(d);
        }
        result.push_back(run);
    }
    return result;
}

// A string and its tokens, cut once before sorting.
struct Tokenized
{
    QString text;
    std::vector<Token> tokens;
};

// Digit runs by value, a digit run against a character as "0" would be, a string that ends
// first before the other; when all that ties, the first differing code unit.
bool referenceLess(const Tokenized &left, const Tokenized &right)
{
    const QString &a = left.text, &b = right.text;
    const std::vector<Token> &ta = left.tokens, &tb = right.tokens;
    for (std::size_t k = 0; k < ta.size() && k < tb.size(); ++k) {
        const Token &x = ta[k], &y = tb[k];
        if (x.digits && y.digits) {
            if (x.value.size() != y.value.size())
                return x.value.size() < y.value.size();
            if (x.value != y.value)
                return x.value < y.value;
        } else if (x.digits != y.digits) {
            const char16_t other = x.digits ? y.unit : x.unit;
            return x.digits == (other > u'0');
        } else if (x.unit != y.unit) {
            return x.unit < y.unit;
        }
    }
    if (ta.size() != tb.size())
        return ta.size() < tb.size();
    for (qsizetype k = 0; k < a.size() && k < b.size(); ++k) {
        if (a[k] != b[k])
            return a[k].unicode() < b[k].unicode();
    }
    return a.size() < b.size();
}

struct Parts
{
    qint64 frame = VKNotFound;
    QString prefix, postfix;
};

Parts referenceParts(const QString &path)
{
    const QString name = VKPathString::lastPathComponent(path);
    const QString left =
        VKStringRanges::stringByDeletingSuffix(name, VKStringRanges::nonDecimalDigitSuffix(name));
    const QString digits = VKStringRanges::decimalDigitSuffix(left);
    if (left.isEmpty() || digits.isEmpty())
        return {};
    const QString postfix = VKStringRanges::nonDecimalDigitSuffix(path);
    const QString beforePostfix = VKStringRanges::stringByDeletingSuffix(path, postfix);
    return {VKStringRanges::intValue(digits),
            VKStringRanges::stringByDeletingSuffix(
                beforePostfix, VKStringRanges::decimalDigitSuffix(beforePostfix)),
            postfix};
}

QList<L> referenceSequences(const L &files)
{
    std::vector<Tokenized> tokenized;
    for (const QString &file : files)
        tokenized.push_back({file, tokens(file)});
    std::sort(tokenized.begin(), tokenized.end(), referenceLess);
    L sorted;
    for (const Tokenized &t : tokenized)
        sorted.append(t.text);
    QList<L> runs;
    for (qsizetype i = 0; i < sorted.size();) {
        L run;
        Parts previous;
        for (qsizetype j = i; j < sorted.size(); ++j) {
            const Parts parts = referenceParts(sorted[j]);
            if (parts.frame == VKNotFound ||
                (!run.isEmpty() &&
                 (parts.frame != previous.frame + 1 || parts.postfix != previous.postfix ||
                  parts.prefix != previous.prefix)))
                break;
            run.append(sorted[j]);
            previous = parts;
        }
        if (run.isEmpty())
            run.append(sorted[i]);
        i += run.size();
        runs.append(run);
    }
    return runs;
}

// --- Random listings ---

// Digits of other scripts: Arabic-Indic, fullwidth, Devanagari, and mathematical bold (outside
// the Basic Multilingual Plane).
constexpr char32_t digitZeros[] = {U'0', U'\u0660', U'\uFF10', U'\u0966', U'\U0001D7CE'};

class ListingGenerator
{
public:
    explicit ListingGenerator(unsigned seed) : m_random(seed) {}

    L listing(int size)
    {
        L files;
        while (files.size() < size) {
            switch (pick(10)) {
            case 0: // a side-car, or digits only in a folder name
                files.append(folder() + pickOf({"notes.txt", "Thumbs.db", "README", "clip.mov",
                                                ".DS_Store", "", "a", "A", "é.x", "🎬"}));
                break;
            case 1: // anything
                files.append(folder() + noise(1 + pick(8)));
                break;
            default:
                appendSequence(files, size - files.size());
            }
        }
        std::shuffle(files.begin(), files.end(), m_random);
        return files;
    }

private:
    int pick(int n) { return int(m_random() % unsigned(n)); }

    QString pickOf(std::initializer_list<const char *> texts)
    {
        return QString::fromUtf8(texts.begin()[pick(int(texts.size()))]);
    }

    // Folders nest and carry numbers themselves, so that prefixes of different runs share
    // beginnings and digits.
    QString folder()
    {
        return pickOf({"", "", "/V/", "/V/reel1/", "/V/reel01/", "/V/reel10/", "/V/Reel1/", "d/",
                       "d/e//", "x7/"});
    }

    QString number(quint64 value, int padding, char32_t zero)
    {
        QString text = QString::number(value).rightJustified(padding, u'0');
        if (zero == U'0')
            return text;
        QString converted;
        for (QChar c : std::as_const(text))
            converted +=
                QString::fromUcs4(std::u32string(1, zero + char32_t(c.unicode() - u'0')).data(), 1);
        return converted;
    }

    QString noise(int length)
    {
        static const QString pieces[] = {"a",  "A",
                                         "_",  ".",
                                         "-",  " ",
                                         "/",  "é",
                                         "#",  "0",
                                         "1",  "9",
                                         "00", "٣",
                                         "１", QString::fromUcs4(U"\U0001D7D9"),
                                         "😀",  QString(QChar(0xD835)),
                                         "~",  "\t"};
        QString s;
        for (int k = 0; k < length; ++k)
            s += pieces[pick(int(std::size(pieces)))];
        return s;
    }

    void appendSequence(L &files, qsizetype room)
    {
        QString base = pickOf({"clip_", "clip.", "Clip_", "CLIP_", "A001C002_", "shot 10 v", "",
                               "plate-", "r", "ä_"});
        if (pick(3) == 0) // a number inside the name that other runs may share or not
            base += number(quint64(pick(3)), pick(3), digitZeros[pick(5) == 0 ? 1 : 0]) +
                    pickOf({"_", ".", "-", "a"});
        if (pick(8) == 0)
            base = noise(1 + pick(4)) + base;
        const QString postfix =
            pickOf({".dpx", ".dpx", ".DPX", ".exr", "", "a", ".tar.gz", "_final.tif", "/", "!"});
        const int padding = pick(4) == 0 ? 0 : 1 + pick(8);
        const char32_t zero = pick(6) == 0 ? digitZeros[1 + pick(4)] : U'0';
        quint64 start = quint64(pick(20));
        if (pick(15) == 0)
            start = pick(2) ? 2147483640u + quint64(pick(20)) : 18446744073709551600u;
        const int length = std::min<int>(int(room), 1 + pick(pick(4) == 0 ? 60 : 8));
        const bool gaps = pick(3) == 0;
        const QString prefix = folder() + base;
        quint64 frame = start;
        for (int k = 0; k < length; ++k, ++frame) {
            if (gaps && pick(4) == 0)
                frame += quint64(pick(3));
            const QString digits = number(frame, padding, zero);
            files.append(prefix + (pick(12) == 0 ? QString(u'0') + digits : digits) + postfix);
            if (pick(20) == 0)
                files.append(files.last()); // the same path twice
        }
    }

    std::mt19937 m_random;
};

} // namespace

// The reference must itself agree with what the library has always answered on the pinned
// surprises, or comparing against it proves nothing.
TEST(VKFileSequenceDifferential, ReferenceAgreesOnNamedCases)
{
    struct Case
    {
        const char *name;
        L files;
    };
    const Case cases[] = {
        {"numbers by value", {"a10.dpx", "a9.dpx", "a11.dpx"}},
        {"gap", {"clip_0004.dpx", "clip_0001.dpx", "clip_0002.dpx"}},
        {"another postfix", {"x_001.tif", "x_001.dpx"}},
        {"another folder", {"b/0002.dpx", "a/0001.dpx"}},
        {"a name without digits", {"clip.dpx"}},
        {"prefixes nested by a number",
         {"a_5.dpx", "a_1_3.dpx", "a_2.dpx", "a_1.dpx", "a_1_4.dpx"}},
        {"leading zeros tie", {"a_01.dpx", "a_1.dpx", "a_001.dpx", "a_0.dpx", "a_00.dpx"}},
        {"folders equal in value", {"r01/c_1.dpx", "r1/c_2.dpx", "r01/c_2.dpx", "r1/c_1.dpx"}},
        {"case", {"C_2.dpx", "c_1.dpx", "C_1.dpx", "c_2.dpx"}},
        {"frames beyond 32 bits",
         {"c_2147483647.x", "c_2147483648.x", "c_99999999999999999999.x", "c_2147483646.x"}},
        {"non-ASCII digits", {"c_٣.x", "c_2.x", "c_４.x", "c_𝟓.x"}},
        {"side-car beside a run", {"a/clip.mov", "a/clip_1.dpx", "a/clip_2.dpx", "a/clip_.dpx"}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(VKFileSequence::sequencesWithFiles(c.files), referenceSequences(c.files));
    }
}

TEST(VKFileSequenceDifferential, RandomListingsGroupLikeTheReference)
{
    struct Size
    {
        const char *name;
        int listings;
        int files;
    };
    const Size sizes[] = {{"empty", 1, 0},
                          {"single", 50, 1},
                          {"small", 1500, 12},
                          {"medium", 300, 150},
                          {"large", 4, 5000}};
    ListingGenerator generator(15);
    for (const Size &size : sizes) {
        for (int k = 0; k < size.listings; ++k) {
            const L files = generator.listing(size.files);
            const QList<L> expected = referenceSequences(files);
            const QList<L> actual = VKFileSequence::sequencesWithFiles(files);
            if (actual != expected) {
                ADD_FAILURE() << size.name << " listing " << k << " groups differently:\n"
                              << files.join(u'\n').toStdString();
                return;
            }
        }
    }
}
