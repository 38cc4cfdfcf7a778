#include "Timecode/VKRegex_p.h"

#include <oniguruma.h>

#include <mutex>

namespace {

// The engine is initialised once, and patterns are created and freed one at a time: the
// engine does not promise that concurrent compilation is safe. Searching is.
std::mutex &compileMutex()
{
    static std::mutex mutex;
    return mutex;
}

void initialiseEngine()
{
    static std::once_flag once;
    std::call_once(once, [] {
        OnigEncoding encodings[] = {ONIG_ENCODING_UTF16_LE};
        onig_initialize(encodings, 1);
    });
}

OnigSyntaxType *captureHistorySyntax()
{
    static OnigSyntaxType syntax = [] {
        OnigSyntaxType s;
        onig_copy_syntax(&s, ONIG_SYNTAX_RUBY);
        s.op2 |= ONIG_SYN_OP2_ATMARK_CAPTURE_HISTORY;
        return s;
    }();
    return &syntax;
}

const OnigUChar *bytes(const QString &text)
{
    return reinterpret_cast<const OnigUChar *>(text.utf16());
}

const OnigUChar *bytesEnd(const QString &text)
{
    return bytes(text) + text.size() * 2;
}

int collectName(const OnigUChar *name, const OnigUChar *nameEnd, int count, int *groups,
                OnigRegex, void *arg)
{
    auto *names = static_cast<QHash<int, QString> *>(arg);
    const QString text = QString::fromUtf16(reinterpret_cast<const char16_t *>(name),
                                            (nameEnd - name) / 2);
    for (int i = 0; i < count; ++i)
        names->insert(groups[i], text);
    return 0;
}

struct WalkContext
{
    const std::function<void(const VKRegex::Node &, bool)> *visit;
};

int walkCallback(int group, int begin, int end, int level, int at, void *arg)
{
    const auto *context = static_cast<WalkContext *>(arg);
    const VKRegex::Node node{group, level, begin / 2, (end - begin) / 2};
    (*context->visit)(node, at == ONIG_TRAVERSE_CALLBACK_AT_LAST);
    return 0;
}

} // namespace

VKRegex::VKRegex(const QString &pattern, Options options)
{
    initialiseEngine();
    std::lock_guard<std::mutex> lock(compileMutex());
    OnigRegex regex = nullptr;
    OnigErrorInfo errorInfo;
    const bool history = options == Options::CaptureHistory;
    const int status = onig_new(&regex, bytes(pattern), bytesEnd(pattern),
                                history ? ONIG_OPTION_CAPTURE_GROUP : ONIG_OPTION_NONE,
                                ONIG_ENCODING_UTF16_LE,
                                history ? captureHistorySyntax() : ONIG_SYNTAX_RUBY, &errorInfo);
    if (status != ONIG_NORMAL) {
        OnigUChar message[ONIG_MAX_ERROR_MESSAGE_LEN];
        onig_error_code_to_str(message, status, &errorInfo);
        m_error = QString::fromUtf8(reinterpret_cast<const char *>(message));
        return;
    }
    m_regex = regex;
    onig_foreach_name(regex, collectName, &m_groupNames);
}

VKRegex::~VKRegex()
{
    if (m_regex) {
        std::lock_guard<std::mutex> lock(compileMutex());
        onig_free(static_cast<OnigRegex>(m_regex));
    }
}

int VKRegex::numberOfGroups() const
{
    return m_regex ? onig_number_of_captures(static_cast<OnigRegex>(m_regex)) : 0;
}

VKRegex::Match VKRegex::search(const QString &text, qsizetype from) const
{
    Match match;
    if (!m_regex || from < 0 || from > text.size())
        return match;
    std::shared_ptr<OnigRegion> region(onig_region_new(),
                                       [](OnigRegion *r) { onig_region_free(r, 1); });
    const OnigUChar *start = bytes(text);
    const OnigUChar *end = bytesEnd(text);
    const int position = onig_search(static_cast<OnigRegex>(m_regex), start, end,
                                     start + from * 2, end, region.get(), ONIG_OPTION_NONE);
    if (position < 0 || region->num_regs < 1)
        return match;
    match.m_location = region->beg[0] / 2;
    match.m_length = (region->end[0] - region->beg[0]) / 2;
    match.m_region = region;
    return match;
}

void VKRegex::Match::walkCaptureTree(
    const std::function<void(const Node &, bool atLast)> &visit) const
{
    if (!m_region)
        return;
    WalkContext context{&visit};
    onig_capture_tree_traverse(static_cast<OnigRegion *>(m_region.get()),
                               ONIG_TRAVERSE_CALLBACK_AT_BOTH, walkCallback, &context);
}

QString VKRegex::replaceEvery(const QString &text,
                              const std::function<QString(const QString &)> &replacement) const
{
    QString result;
    qsizetype copied = 0;
    qsizetype from = 0;
    while (from <= text.size()) {
        const Match match = search(text, from);
        if (!match.found())
            break;
        result += QStringView(text).mid(copied, match.location() - copied);
        result += replacement(text.mid(match.location(), match.length()));
        copied = match.location() + match.length();
        // An empty match moves on by one character so that the loop always advances.
        from = match.length() > 0 ? copied : copied + 1;
        if (match.length() == 0 && match.location() < text.size()) {
            result += text[match.location()];
            copied = from;
        }
    }
    if (copied < text.size())
        result += QStringView(text).mid(copied);
    return result;
}
