#include "Foundation/VKException.h"
#include "Foundation/VKValueTransformer.h"

#include "VKTestSupport.h"

#include <gtest/gtest.h>

namespace {

class Doubler : public VKValueTransformer
{
public:
    explicit Doubler(bool reversible) : m_reversible(reversible) {}
    QMetaType transformedValueClass() const override { return QMetaType::fromType<int>(); }
    bool allowsReverseTransformation() const override { return m_reversible; }
    QVariant transformedValue(const QVariant &v) const override
    {
        return v.isValid() ? QVariant(v.toInt() * 2) : QVariant();
    }
    QString className() const override { return QStringLiteral("Doubler"); }

private:
    bool m_reversible;
};

} // namespace

TEST(VKValueTransformer, DefaultReverseFollowsTheReverseFlag)
{
    Doubler oneWay(false);
    EXPECT_EQ(oneWay.transformedValue(21).toInt(), 42);
    EXPECT_EQ(vkRaisedBy([&] { oneWay.reverseTransformedValue(4); }),
              "NSInvalidArgumentException|Doubler does not support reverse transformation");
    Doubler twoWay(true);
    EXPECT_EQ(twoWay.reverseTransformedValue(4).toInt(), 8);
    VKValueTransformer identity;
    EXPECT_EQ(identity.transformedValue(QStringLiteral("x")).toString(), QStringLiteral("x"));
    EXPECT_FALSE(identity.allowsReverseTransformation());
}

TEST(VKValueTransformer, RegistryByName)
{
    auto t = std::make_shared<Doubler>(false);
    VKValueTransformer::setValueTransformer(t, QStringLiteral("DoublerTest"));
    EXPECT_EQ(VKValueTransformer::valueTransformerForName(QStringLiteral("DoublerTest")), t);
    EXPECT_TRUE(VKValueTransformer::valueTransformerNames().contains(QStringLiteral("DoublerTest")));
    VKValueTransformer::setValueTransformer(nullptr, QStringLiteral("DoublerTest"));
    EXPECT_EQ(VKValueTransformer::valueTransformerForName(QStringLiteral("DoublerTest")), nullptr);
    EXPECT_EQ(VKValueTransformer::valueTransformerForName(QStringLiteral("missing")), nullptr);
}
