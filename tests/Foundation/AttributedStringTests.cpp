#include "Foundation/VKAttributedString.h"

#include "Foundation/VKException.h"
#include "VKTestSupport.h"

#include <QFont>

#include <gtest/gtest.h>

namespace {

using Range = VKAttributedString::Range;

QList<Range> runRanges(const VKAttributedString &text)
{
    QList<Range> ranges;
    for (const VKAttributedString::Run &run : text.runs())
        ranges.append(run.range);
    return ranges;
}

} // namespace

TEST(VKAttributedString, RunsSplitAndMergeAsAttributesChange)
{
    VKAttributedString text(QStringLiteral("0123456789"));
    EXPECT_EQ(runRanges(text), (QList<Range>{{0, 10}}));
    text.setForegroundColor(Qt::red, {2, 3});
    EXPECT_EQ(runRanges(text), (QList<Range>{{0, 2}, {2, 3}, {5, 5}}));
    text.setForegroundColor(Qt::red, {5, 2}); // touching the red run merges with it
    EXPECT_EQ(runRanges(text), (QList<Range>{{0, 2}, {2, 5}, {7, 3}}));
    text.addAttribute(VKFontAttributeName, QFont(QStringLiteral("Courier"), 12), {0, 10});
    EXPECT_EQ(text.runs().size(), 3);
    EXPECT_EQ(text.foregroundColorAtIndex(6), QColor(Qt::red));
    EXPECT_FALSE(text.foregroundColorAtIndex(7).isValid());
    text.removeAttribute(VKForegroundColorAttributeName, {0, 10});
    EXPECT_EQ(runRanges(text), (QList<Range>{{0, 10}}));
    text.setAttributes({}, {0, 10});
    EXPECT_EQ(text, VKAttributedString(QStringLiteral("0123456789")));
    text.setForegroundColor(Qt::blue, {4, 0}); // an empty range changes nothing
    EXPECT_EQ(text.runs().size(), 1);
}

TEST(VKAttributedString, EffectiveRangesAndSubstrings)
{
    VKAttributedString text(QStringLiteral("abcdef"), {{VKBaselineOffsetAttributeName, 1.0}});
    text.setForegroundColor(Qt::red, {0, 2});
    text.setForegroundColor(Qt::black, {2, 2});
    Range range;
    EXPECT_EQ(text.attributesAtIndex(3, &range).value(VKForegroundColorAttributeName),
              QVariant(QColor(Qt::black)));
    EXPECT_EQ(range, (Range{2, 2}));
    // One attribute's effective range crosses runs that share its value.
    EXPECT_EQ(text.attributeAtIndex(VKBaselineOffsetAttributeName, 3, &range), QVariant(1.0));
    EXPECT_EQ(range, (Range{0, 6}));
    EXPECT_FALSE(text.attributeAtIndex(VKForegroundColorAttributeName, 5, &range).isValid());
    EXPECT_EQ(range, (Range{4, 2}));

    const VKAttributedString sub = text.attributedSubstring({1, 4});
    EXPECT_EQ(sub.string(), "bcde");
    EXPECT_EQ(runRanges(sub), (QList<Range>{{0, 1}, {1, 2}, {3, 1}}));
    EXPECT_EQ(sub.foregroundColorAtIndex(0), QColor(Qt::red));
    EXPECT_TRUE(text.attributedSubstring({6, 0}).isEmpty());
}

TEST(VKAttributedString, EditingKeepsRunsConsistent)
{
    VKAttributedString text(QStringLiteral("red"), {{VKForegroundColorAttributeName, QColor(Qt::red)}});
    text.append(QStringLiteral("black"), {{VKForegroundColorAttributeName, QColor(Qt::black)}});
    text.append(VKAttributedString(QStringLiteral("!"),
                                   {{VKForegroundColorAttributeName, QColor(Qt::black)}}));
    EXPECT_EQ(text.string(), "redblack!");
    EXPECT_EQ(runRanges(text), (QList<Range>{{0, 3}, {3, 6}}));
    text.replaceCharacters({3, 5}, QStringLiteral("X")); // takes the first replaced attributes
    EXPECT_EQ(text.string(), "redX!");
    EXPECT_EQ(text.foregroundColorAtIndex(3), QColor(Qt::black));
    text.replaceCharacters({3, 0}, QStringLiteral("__")); // insertion takes the previous ones
    EXPECT_EQ(text.string(), "red__X!");
    EXPECT_EQ(text.foregroundColorAtIndex(3), QColor(Qt::red));
    text.replaceCharacters({0, 7}, QString());
    EXPECT_TRUE(text.isEmpty());
    EXPECT_TRUE(text.runs().isEmpty());
    text.append(QString());
    EXPECT_TRUE(text.runs().isEmpty());
    // Inline icons sit on the object replacement character.
    text.append(QString(QChar(0xFFFC)), {{VKAttachmentAttributeName, QStringLiteral("icon")}});
    EXPECT_EQ(text.attributeAtIndex(VKAttachmentAttributeName, 0), QVariant("icon"));
}

TEST(VKAttributedString, OutOfRangeRaises)
{
    VKAttributedString text(QStringLiteral("abc"));
    EXPECT_THROW(text.attributesAtIndex(3), VKException);
    EXPECT_THROW(text.attributesAtIndex(-1), VKException);
    EXPECT_THROW(text.setForegroundColor(Qt::red, {2, 2}), VKException);
    EXPECT_THROW(text.attributedSubstring({-1, 1}), VKException);
    EXPECT_THROW(VKAttributedString().foregroundColorAtIndex(0), VKException);
    EXPECT_EQ(vkRaisedBy([&] { text.replaceCharacters({4, 0}, QStringLiteral("x")); }),
              "NSRangeException|-[VKAttributedString replaceCharactersInRange:withString:]: range "
              "{4, 0} out of bounds; string length 3");
    EXPECT_EQ(text.string(), "abc");
}
