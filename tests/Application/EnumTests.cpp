// Enumerations: selecting by element, identifier, name, index and key, with the announcements and
// notifications each makes; element values and equality; descriptions; the selection kept in the
// user defaults.
#include "Application/VKEnum.h"
#include "Foundation/VKException.h"
#include "Foundation/VKNotificationCenter.h"
#include "Foundation/VKStringRanges.h"
#include "Foundation/VKUserDefaults.h"

#include "VKTestSupport.h"

#include <gtest/gtest.h>

#include <limits>

// Three display modes, declared the way hosts declare them (outside any namespace, since
// descriptions show the class name); the first is the default.
class VKTestDisplayEnum : public VKEnum
{
    VK_ENUM(VKTestDisplayEnum)
public:
    static QList<std::shared_ptr<VKEnumElement>> elements()
    {
        static const QList<std::shared_ptr<VKEnumElement>> list{
            VKEnumElement::sourceWithIdentifier("timecode", "Timecode", 0),
            VKEnumElement::sourceWithIdentifier("frames", "Frames", 1),
            VKEnumElement::sourceWithIdentifier("feet", "Feet", 2)};
        return list;
    }
    static std::shared_ptr<VKEnumElement> defaultElement() { return elements().first(); }
};

// An element that carries a "value", as elementValues() needs.
class VKTestValueElement : public VKEnumElement
{
public:
    using VKEnumElement::VKEnumElement;
    QVariant valueForKey(const QString &key) const override
    {
        return key == u"value" ? representedObject().toDouble() * 1000
                               : VKEnumElement::valueForKey(key);
    }
};

// Two rates, with values; without a defaultElement() of its own it inherits the base class's
// (a new element with null fields each time).
class VKTestRateEnum : public VKEnum
{
    VK_ENUM(VKTestRateEnum)
public:
    static QList<std::shared_ptr<VKEnumElement>> elements()
    {
        static const QList<std::shared_ptr<VKEnumElement>> list{
            std::make_shared<VKTestValueElement>("24", "24 fps", 0.024),
            std::make_shared<VKTestValueElement>("25", "25 fps", 0.025)};
        return list;
    }
};

namespace {

// While alive, counts VDEnumSelectedElementDidChangeNotification posts (of any enumeration) and,
// given an enumeration, the changes announced to observers of its selection keys.
struct Watch
{
    explicit Watch(VKEnum *observed = nullptr) : object(observed)
    {
        post = VKNotificationCenter::defaultCenter().addObserver(
            this, VDEnumSelectedElementDidChangeNotification, nullptr,
            [this](const VKNotification &n) {
                ++posts;
                last = n.object().object<VKEnum>();
                EXPECT_TRUE(n.userInfo().isEmpty());
            });
        for (int i = 0; object && i < 4; ++i)
            tokens << object->observe(keys[i], 0,
                                      [this, i](auto *, const auto &, const auto &) { ++seen[i]; });
    }
    ~Watch()
    {
        VKNotificationCenter::defaultCenter().removeObservation(post);
        for (auto token : tokens)
            object->removeObservation(token);
    }
    // "posts:announcements of element,identifier,name,index".
    QString line() const
    {
        return QString::asprintf("%d:%d,%d,%d,%d", posts, seen[0], seen[1], seen[2], seen[3]);
    }
    static constexpr const char *keys[] = {"selectedElement", "selectedIdentifier", "selectedName",
                                           "selectedIndex"};
    VKEnum *object;
    VKNotificationToken post = 0;
    QList<VKObservationToken> tokens;
    int seen[4] = {};
    int posts = 0;
    VKEnum *last = nullptr;
};

QString address(const void *pointer)
{
    return QString::asprintf("%p", pointer);
}

class EnumDefaults : public ::testing::Test
{
protected:
    void SetUp() override { VKUserDefaults::setStandardUserDefaultsFolder(m_dir.path()); }
    void TearDown() override { VKUserDefaults::setStandardUserDefaultsFolder({}); }
    std::shared_ptr<VKUserDefaults> defaults() { return VKUserDefaults::standardUserDefaults(); }
    // What the file holds once written, read by a store of its own.
    QString stored(const QString &key)
    {
        defaults()->synchronize();
        return VKUserDefaults(defaults()->filePath()).stringForKey(key);
    }
    VKTempDir m_dir;
};

} // namespace

TEST(Enum, SettersSelectAnnounceAndPost)
{
    const auto list = VKTestDisplayEnum::elements();
    // The selection afterwards, and what a Watch saw ("posts:element,identifier,name,index").
    // clang-format off
    const struct { const char *name; std::function<void(VKTestDisplayEnum &)> change; QString selected, watched; } cases[] = {
        {"known identifier", [](auto &e) { e.setSelectedIdentifier("feet"); }, "feet", "1:1,2,1,1"},
        {"unknown identifier", [](auto &e) { e.setSelectedIdentifier("yards"); }, "frames", "0:0,1,0,0"},
        {"same identifier", [](auto &e) { e.setSelectedIdentifier("frames"); }, "frames", "0:0,0,0,0"},
        {"null identifier", [](auto &e) { e.setSelectedIdentifier({}); }, "timecode", "1:1,2,1,1"},
        {"equal element, other object",
         [](auto &e) { e.setSelectedElement(VKEnumElement::sourceWithIdentifier("frames", "F", 9)); },
         "frames", "1:1,1,1,1"},
        {"same element object", [&](auto &e) { e.setSelectedElement(list.at(1)); }, "frames", "0:0,0,0,0"},
        {"null element", [](auto &e) { e.setSelectedElement(nullptr); }, "timecode", "1:1,1,1,1"},
        {"name", [](auto &e) { e.setSelectedName("Feet"); }, "feet", "1:1,1,1,1"},
        {"unknown name", [](auto &e) { e.setSelectedName("feet"); }, "timecode", "1:1,1,1,1"},
        {"last index", [](auto &e) { e.setSelectedIndex(2); }, "feet", "1:1,1,1,1"},
        {"index at the count", [](auto &e) { e.setSelectedIndex(3); }, "timecode", "1:1,1,1,1"},
        {"largest index", [](auto &e) { e.setSelectedIndex(std::numeric_limits<quint64>::max()); },
         "timecode", "1:1,1,1,1"},
        {"by key", [](auto &e) { e.setValueForKey(QString("feet"), "selectedIdentifier"); }, "feet", "1:1,2,1,1"},
    };
    // clang-format on
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const auto e = VKTestDisplayEnum::enumWithSelectedIdentifier("frames");
        ASSERT_EQ(e->selectedElement(), list.at(1));
        Watch watch(e.get());
        c.change(*e);
        EXPECT_EQ(e->selectedIdentifier() + u' ' + watch.line(), c.selected + u' ' + c.watched);
        EXPECT_EQ(watch.last, watch.posts ? e.get() : nullptr);
        EXPECT_EQ(e->selectedIndex(),
                  QStringList({"timecode", "frames", "feet"}).indexOf(c.selected));
    }
}

TEST(Enum, TheBaseDefaultIsANewElementThatIsNeverFound)
{
    const auto rates = VKTestRateEnum::enumm();
    const auto first = rates->selectedElement();
    ASSERT_TRUE(first);
    EXPECT_TRUE(first->identifier().isNull());
    EXPECT_EQ(rates->selectedIndex(), VKNotFound);
    Watch watch(rates.get());
    rates->setSelectedIndex(7);
    EXPECT_NE(rates->selectedElement(), first) << "a new default object each time";
    EXPECT_EQ(watch.line(), "1:1,1,1,1");
    // Null is never equal to null: a walk that finds nothing, announced as such.
    rates->setSelectedIdentifier({});
    EXPECT_EQ(watch.line(), "1:1,2,1,1");
    rates->setSelectedIdentifier("25");
    EXPECT_EQ(rates->selectedIndex(), 1);
    EXPECT_TRUE(VKEnum::enumm()->elements().isEmpty());
}

TEST(Enum, ElementValuesIntegerValuesAndEquality)
{
    EXPECT_EQ(VKTestRateEnum::enumm()->elementValues(), QVariantList({24.0, 25.0}));
    EXPECT_EQ(VKTestRateEnum::enumm()->possibleKeys(), QStringList({"24 fps", "25 fps"}));
    const auto display = VKTestDisplayEnum::enumm();
    EXPECT_EQ(display->elementNames(), QStringList({"Timecode", "Frames", "Feet"}));
    EXPECT_EQ(vkRaisedBy([&] { display->elementValues(); }),
              "NSUnknownKeyException|[<VKEnumElement " +
                  address(VKTestDisplayEnum::elements().first().get()) +
                  "> valueForUndefinedKey:]: this class is not key value coding-compliant for "
                  "the key value.");

    // clang-format off
    const std::pair<QVariant, qint64> integers[] = {
        {42, 42}, {3.7, 3}, {-3.7, -3}, {1e30, std::numeric_limits<qint64>::max()}, {true, 1},
        {"12abc", 12}, {"abc", 0}, {QVariant(), 0}, {QVariantList{1, 2}, 0}};
    // clang-format on
    for (const auto &[represented, expected] : integers)
        EXPECT_EQ(VKEnumElement::sourceWithIdentifier("i", "n", represented)->integerValue(),
                  expected)
            << represented.toString();

    // Equal by identifier, both ways; a null identifier equals nothing, not even null.
    const std::tuple<QString, QString, bool> equalities[] = {
        {"x", "x", true}, {"x", "y", false}, {{}, {}, false}, {"", "", true}, {{}, "", false}};
    for (const auto &[first, second, equal] : equalities) {
        const auto a = VKEnumElement::sourceWithIdentifier(first, "A", 1);
        const auto b = VKEnumElement::sourceWithIdentifier(second, "B", 2);
        EXPECT_EQ(a->isEqual(b.get()), equal) << first << "|" << second;
        EXPECT_EQ(b->isEqual(a.get()), equal) << first << "|" << second;
    }
}

TEST(Enum, Descriptions)
{
    const auto plain = VKEnumElement::sourceWithIdentifier({}, {}, {});
    EXPECT_EQ(plain->description(),
              "<VKEnumElement: " + address(plain.get()) + "> \"(null)\" (null)");

    const auto rates = VKTestRateEnum::enumWithSelectedIdentifier("25");
    const auto list = VKTestRateEnum::elements();
    EXPECT_EQ(rates->description(), "<VKTestRateEnum: " + address(rates.get()) + ">{\n" +
                                        "\t<VKTestValueElement: " + address(list[0].get()) +
                                        "> \"24 fps\" 24\n" + "\t<VKTestValueElement: " +
                                        address(list[1].get()) + "> \"25 fps\" 25 (selected)\n}\n");
    // An equal element that is not the listed object is not marked.
    rates->setSelectedElement(VKEnumElement::sourceWithIdentifier("25", "x", {}));
    EXPECT_FALSE(rates->description().contains("(selected)"));
    const auto base = VKEnum::enumm();
    EXPECT_EQ(base->description(), "<VKEnum: " + address(base.get()) + ">{\n}\n");
}

TEST_F(EnumDefaults, LoadsCorrectsAndStoresTheSelection)
{
    // clang-format off
    const struct { const char *name; QVariant storedBefore; QString selected; int postsDuringInit; } cases[] = {
        {"nothing stored", {}, "timecode", 1},
        {"stored identifier", QString("feet"), "feet", 2},
        {"unknown identifier is overwritten", QString("yards"), "timecode", 1},
    };
    // clang-format on
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        defaults()->setObject(c.storedBefore, "display");
        Watch watch;
        const auto display = VKTestDisplayEnum::enumWithUserDefaultsKey("display");
        EXPECT_EQ(display->selectedIdentifier(), c.selected);
        EXPECT_EQ(watch.posts, c.postsDuringInit);
        EXPECT_EQ(stored("display"), c.selected);
        EXPECT_EQ(defaults()->registeredDefaults().value("display").toString(), "timecode");
    }
    // Every later selection is written.
    const auto display = VKTestDisplayEnum::enumWithUserDefaultsKey("display");
    display->setSelectedIndex(1);
    EXPECT_EQ(stored("display"), "frames");
}

TEST_F(EnumDefaults, FollowsChangesMadeElsewhereOnceUntilTheKeyOrTheEnumerationGoes)
{
    const int listeners = VKNotificationCenter::defaultCenter().observationCount();
    auto display = VKTestDisplayEnum::enumWithUserDefaultsKey("display");
    EXPECT_EQ(VKNotificationCenter::defaultCenter().observationCount(), listeners + 1);
    Watch watch;
    // Each step, then the selection and the posts so far.
    // clang-format off
    const std::tuple<const char *, std::function<void()>, QString> steps[] = {
        {"set elsewhere", [&] { defaults()->setObject(QString("frames"), "display"); }, "frames 1"},
        {"another key", [&] { defaults()->setObject(QString("other"), "unrelated"); }, "frames 1"},
        {"no key, no following", [&] { display->setUserDefaultsKey({}); defaults()->setObject(QString("timecode"), "display"); }, "frames 1"},
        {"a new key reads what is stored", [&] { display->setUserDefaultsKey("display"); }, "timecode 2"},
    };
    // clang-format on
    for (const auto &[name, step, expected] : steps) {
        SCOPED_TRACE(name);
        step();
        EXPECT_EQ(display->selectedIdentifier() + u' ' + QString::number(watch.posts), expected);
    }
    // Destruction ends the listening.
    display.reset();
    EXPECT_EQ(VKNotificationCenter::defaultCenter().observationCount(), listeners + 1);
    defaults()->setObject(QString("feet"), "display"); // reaches no dead enumeration
    EXPECT_EQ(watch.posts, 2);
}
