#include "Foundation/VKAttributedString.h"

#include "Foundation/VKException.h"

const QString VKForegroundColorAttributeName = QStringLiteral("foregroundColor");
const QString VKFontAttributeName = QStringLiteral("font");
const QString VKBaselineOffsetAttributeName = QStringLiteral("baselineOffset");
const QString VKAttachmentAttributeName = QStringLiteral("attachment");

VKAttributedString::VKAttributedString(const QString &string, const VKTextAttributes &attributes)
    : m_string(string)
{
    if (!string.isEmpty())
        m_segments.append({string.size(), attributes});
}

void VKAttributedString::checkIndex(qsizetype index, const char *operation) const
{
    if (index < 0 || index >= m_string.size()) {
        VKException::raise(VKRangeException, "-[VKAttributedString %s]: index %lld out of bounds; "
                                             "string length %lld",
                           operation, qint64(index), qint64(m_string.size()));
    }
}

void VKAttributedString::checkRange(Range range, const char *operation) const
{
    if (range.location < 0 || range.length < 0 || range.location > m_string.size() ||
        range.length > m_string.size() - range.location) {
        VKException::raise(VKRangeException,
                           "-[VKAttributedString %s]: range {%lld, %lld} out of bounds; string "
                           "length %lld",
                           operation, qint64(range.location), qint64(range.length),
                           qint64(m_string.size()));
    }
}

VKTextAttributes VKAttributedString::attributesAtIndex(qsizetype index, Range *effectiveRange) const
{
    checkIndex(index, "attributesAtIndex:effectiveRange:");
    qsizetype start = 0;
    for (const Segment &segment : m_segments) {
        if (index < start + segment.length) {
            if (effectiveRange)
                *effectiveRange = {start, segment.length};
            return segment.attributes;
        }
        start += segment.length;
    }
    return {};
}

QVariant VKAttributedString::attributeAtIndex(const QString &name, qsizetype index,
                                              Range *effectiveRange) const
{
    checkIndex(index, "attribute:atIndex:effectiveRange:");
    // The effective range of one attribute spans neighbouring runs that share its value.
    qsizetype start = 0;
    qsizetype found = -1;
    for (qsizetype i = 0; i < m_segments.size(); ++i) {
        if (index < start + m_segments[i].length) {
            found = i;
            break;
        }
        start += m_segments[i].length;
    }
    const QVariant value = m_segments[found].attributes.value(name);
    if (effectiveRange) {
        qsizetype first = found;
        qsizetype location = start;
        while (first > 0 && m_segments[first - 1].attributes.value(name) == value) {
            --first;
            location -= m_segments[first].length;
        }
        qsizetype end = start + m_segments[found].length;
        for (qsizetype last = found + 1;
             last < m_segments.size() && m_segments[last].attributes.value(name) == value; ++last)
            end += m_segments[last].length;
        *effectiveRange = {location, end - location};
    }
    return value;
}

QColor VKAttributedString::foregroundColorAtIndex(qsizetype index) const
{
    return attributeAtIndex(VKForegroundColorAttributeName, index).value<QColor>();
}

QList<VKAttributedString::Run> VKAttributedString::runs() const
{
    QList<Run> result;
    qsizetype start = 0;
    for (const Segment &segment : m_segments) {
        result.append({{start, segment.length}, segment.attributes});
        start += segment.length;
    }
    return result;
}

VKAttributedString VKAttributedString::attributedSubstring(Range range) const
{
    checkRange(range, "attributedSubstringFromRange:");
    VKAttributedString result;
    result.m_string = m_string.mid(range.location, range.length);
    qsizetype start = 0;
    for (const Segment &segment : m_segments) {
        const qsizetype from = std::max(start, range.location);
        const qsizetype to = std::min(start + segment.length, range.end());
        if (from < to)
            result.m_segments.append({to - from, segment.attributes});
        start += segment.length;
    }
    return result;
}

qsizetype VKAttributedString::splitAt(qsizetype position)
{
    qsizetype start = 0;
    for (qsizetype i = 0; i < m_segments.size(); ++i) {
        if (position == start)
            return i;
        const qsizetype end = start + m_segments[i].length;
        if (position < end) {
            Segment tail{end - position, m_segments[i].attributes};
            m_segments[i].length = position - start;
            m_segments.insert(i + 1, tail);
            return i + 1;
        }
        start = end;
    }
    return m_segments.size();
}

template <typename Change>
void VKAttributedString::changeRange(Range range, Change change)
{
    if (range.length == 0)
        return;
    const qsizetype first = splitAt(range.location);
    const qsizetype last = splitAt(range.end());
    for (qsizetype i = first; i < last; ++i)
        change(m_segments[i].attributes);
    coalesce();
}

void VKAttributedString::coalesce()
{
    for (qsizetype i = m_segments.size() - 1; i > 0; --i) {
        if (m_segments[i].length == 0) {
            m_segments.removeAt(i);
        } else if (m_segments[i - 1].attributes == m_segments[i].attributes) {
            m_segments[i - 1].length += m_segments[i].length;
            m_segments.removeAt(i);
        }
    }
    if (!m_segments.isEmpty() && m_segments.first().length == 0)
        m_segments.removeFirst();
}

void VKAttributedString::setAttributes(const VKTextAttributes &attributes, Range range)
{
    checkRange(range, "setAttributes:range:");
    changeRange(range, [&](VKTextAttributes &current) { current = attributes; });
}

void VKAttributedString::addAttribute(const QString &name, const QVariant &value, Range range)
{
    checkRange(range, "addAttribute:value:range:");
    changeRange(range, [&](VKTextAttributes &current) { current.insert(name, value); });
}

void VKAttributedString::addAttributes(const VKTextAttributes &attributes, Range range)
{
    checkRange(range, "addAttributes:range:");
    changeRange(range, [&](VKTextAttributes &current) { current.insert(attributes); });
}

void VKAttributedString::removeAttribute(const QString &name, Range range)
{
    checkRange(range, "removeAttribute:range:");
    changeRange(range, [&](VKTextAttributes &current) { current.remove(name); });
}

void VKAttributedString::setForegroundColor(const QColor &color, Range range)
{
    addAttribute(VKForegroundColorAttributeName, color, range);
}

void VKAttributedString::append(const VKAttributedString &other)
{
    m_string += other.m_string;
    m_segments += other.m_segments;
    coalesce();
}

void VKAttributedString::append(const QString &string, const VKTextAttributes &attributes)
{
    append(VKAttributedString(string, attributes));
}

void VKAttributedString::replaceCharacters(Range range, const QString &string)
{
    checkRange(range, "replaceCharactersInRange:withString:");
    VKTextAttributes attributes;
    if (range.length > 0)
        attributes = attributesAtIndex(range.location);
    else if (range.location > 0)
        attributes = attributesAtIndex(range.location - 1);
    else if (!m_string.isEmpty())
        attributes = attributesAtIndex(0);
    const qsizetype first = splitAt(range.location);
    const qsizetype last = splitAt(range.end());
    m_segments.remove(first, last - first);
    if (!string.isEmpty())
        m_segments.insert(first, {string.size(), attributes});
    m_string.replace(range.location, range.length, string);
    coalesce();
}

bool VKAttributedString::operator==(const VKAttributedString &other) const
{
    return m_string == other.m_string && runs() == other.runs();
}
