// Styled text: a string whose characters carry attributes (foreground colour, font, baseline
// offset, inline icon), kept as consecutive runs of equal attributes.
#pragma once

#include "Foundation/VKExport.h"

#include <QColor>
#include <QList>
#include <QString>
#include <QVariant>
#include <QVariantMap>

// Attribute names. A run's attributes map these names to values.
VK_EXPORT extern const QString VKForegroundColorAttributeName; // "foregroundColor", a QColor
VK_EXPORT extern const QString VKFontAttributeName;            // "font", a QFont
VK_EXPORT extern const QString VKBaselineOffsetAttributeName;  // "baselineOffset", points (double)
// An inline icon (a QIcon or QImage) shown in place of the character it is set on, by
// convention the object replacement character U+FFFC.
VK_EXPORT extern const QString VKAttachmentAttributeName;      // "attachment"

using VKTextAttributes = QVariantMap;

class VK_EXPORT VKAttributedString
{
public:
    struct Range
    {
        qsizetype location = 0;
        qsizetype length = 0;
        qsizetype end() const { return location + length; }
        bool operator==(const Range &) const = default;
    };
    struct Run
    {
        Range range;
        VKTextAttributes attributes;
        bool operator==(const Run &) const = default;
    };

    VKAttributedString() = default;
    // The whole string with one set of attributes.
    explicit VKAttributedString(const QString &string, const VKTextAttributes &attributes = {});

    const QString &string() const { return m_string; }
    qsizetype length() const { return m_string.size(); }
    bool isEmpty() const { return m_string.isEmpty(); }

    // Ranges are in UTF-16 code units, like QString's indices. An index or range outside the
    // string raises VKRangeException.
    VKTextAttributes attributesAtIndex(qsizetype index, Range *effectiveRange = nullptr) const;
    QVariant attributeAtIndex(const QString &name, qsizetype index,
                              Range *effectiveRange = nullptr) const;
    // The foreground colour at an index, or an invalid QColor when none is set.
    QColor foregroundColorAtIndex(qsizetype index) const;
    // The runs in order: they cover the string, and neighbours differ in their attributes.
    QList<Run> runs() const;
    VKAttributedString attributedSubstring(Range range) const;

    // Replaces every attribute over the range.
    void setAttributes(const VKTextAttributes &attributes, Range range);
    // Sets (or overwrites) some attributes over the range and keeps the others.
    void addAttribute(const QString &name, const QVariant &value, Range range);
    void addAttributes(const VKTextAttributes &attributes, Range range);
    void removeAttribute(const QString &name, Range range);
    void setForegroundColor(const QColor &color, Range range);

    void append(const VKAttributedString &other);
    void append(const QString &string, const VKTextAttributes &attributes = {});
    // Replaces the characters of the range; the new text takes the attributes of the first
    // replaced character, or of the character before the range when the range is empty.
    void replaceCharacters(Range range, const QString &string);

    bool operator==(const VKAttributedString &other) const;
    bool operator!=(const VKAttributedString &other) const { return !(*this == other); }

    // The plain string, for "%@".
    QString description() const { return m_string; }

private:
    struct Segment
    {
        qsizetype length = 0;
        VKTextAttributes attributes;
    };

    void checkIndex(qsizetype index, const char *operation) const;
    void checkRange(Range range, const char *operation) const;
    // Splits so that a segment starts at `position`; answers that segment's index.
    qsizetype splitAt(qsizetype position);
    template <typename Change>
    void changeRange(Range range, Change change);
    void coalesce();

    QString m_string;
    QList<Segment> m_segments; // consecutive, covering m_string, no empty segment
};
