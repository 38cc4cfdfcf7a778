// Enumerations: selecting in every way, with what each announces and posts; elements, values,
// equality and descriptions; the selection kept in the user defaults.
#include "Application/VKEnum.h"
#include "Foundation/VKNotificationCenter.h"
#include "Foundation/VKStringRanges.h"
#include "Foundation/VKUserDefaults.h"

#include "VKTestSupport.h"

#include <gtest/gtest.h>

#include <limits>

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

// Three display modes, declared the way hosts declare them (outside any namespace, since
// descriptions show the class name); the first is the default.
class VKTestDisplayEnum : public VKEnum
{
    VK_ENUM(VKTestDisplayEnum)
public:
    static QList<std::shared_ptr<VKEnumElement>> elements()
    {
        static const QList<std::shared_ptr<VKEnumElement>> list{
            std::make_shared<VKTestValueElement>("timecode", "Timecode", 0),
            std::make_shared<VKTestValueElement>("frames", "Frames", 1),
            std::make_shared<VKTestValueElement>("feet", "Feet", 2)};
        return list;
    }
    static std::shared_ptr<VKEnumElement> defaultElement() { return elements().first(); }
};

namespace {

QString address(const void *pointer)
{
    return QString::asprintf("%p", pointer);
}

} // namespace

TEST(Enum, SettersSelectAnnounceAndPost)
{
    const auto display = [] { return VKTestDisplayEnum::enumWithSelectedIdentifier("frames"); };
    const auto base = [] { return VKEnum::enumm(); };
    const auto frames = VKTestDisplayEnum::elements().at(1);
    const qint64 none = VKNotFound;
    // The selection afterwards, and what was posted and announced: "posts:element,identifier,name,
    // index". The display enumerations start at "frames"; the base class's at its default.
    // clang-format off
    const struct { const char *name; std::function<std::shared_ptr<VKEnum>()> make; std::function<void(VKEnum &)> change;
                   QString selected; qint64 index; QString watched; } cases[] = {
        {"known identifier", display, [](auto &e) { e.setSelectedIdentifier("feet"); }, "feet", 2, "1:1,2,1,1"},
        {"unknown identifier", display, [](auto &e) { e.setSelectedIdentifier("yards"); }, "frames", 1, "0:0,1,0,0"},
        {"same identifier", display, [](auto &e) { e.setSelectedIdentifier("frames"); }, "frames", 1, "0:0,0,0,0"},
        {"null identifier", display, [](auto &e) { e.setSelectedIdentifier({}); }, "timecode", 0, "1:1,2,1,1"},
        {"equal element, other object", display,
         [](auto &e) { e.setSelectedElement(VKEnumElement::sourceWithIdentifier("frames", "F", 9)); }, "frames", 1, "1:1,1,1,1"},
        {"same element object", display, [&](auto &e) { e.setSelectedElement(frames); }, "frames", 1, "0:0,0,0,0"},
        {"null element", display, [](auto &e) { e.setSelectedElement(nullptr); }, "timecode", 0, "1:1,1,1,1"},
        {"name", display, [](auto &e) { e.setSelectedName("Feet"); }, "feet", 2, "1:1,1,1,1"},
        {"unknown name", display, [](auto &e) { e.setSelectedName("feet"); }, "timecode", 0, "1:1,1,1,1"},
        {"last index", display, [](auto &e) { e.setSelectedIndex(2); }, "feet", 2, "1:1,1,1,1"},
        {"index at the count", display, [](auto &e) { e.setSelectedIndex(3); }, "timecode", 0, "1:1,1,1,1"},
        {"largest index", display, [](auto &e) { e.setSelectedIndex(std::numeric_limits<quint64>::max()); }, "timecode", 0, "1:1,1,1,1"},
        {"base default: a new object each time, never found", base, [](auto &e) { e.setSelectedIndex(7); }, QString(), none, "1:1,1,1,1"},
        {"base default: null is never equal to null", base, [](auto &e) { e.setSelectedIdentifier({}); }, QString(), none, "0:0,1,0,0"},
    };
    // clang-format on
    const char *const keys[] = {"selectedElement", "selectedIdentifier", "selectedName",
                                "selectedIndex"};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const auto e = c.make();
        // Announcements per key, then posts (one of another object or with user information: 100).
        int seen[5] = {};
        for (int i = 0; i < 4; ++i)
            e->observe(keys[i], 0, [&seen, i](auto *, auto &, auto &) { ++seen[i]; });
        const auto post = VKNotificationCenter::defaultCenter().addObserver(
            &seen, VDEnumSelectedElementDidChangeNotification, nullptr,
            [&](const VKNotification &n) {
                seen[4] +=
                    n.object().object<VKEnum>() == e.get() && n.userInfo().isEmpty() ? 1 : 100;
            });
        c.change(*e);
        VKNotificationCenter::defaultCenter().removeObservation(post);
        EXPECT_EQ(e->selectedIdentifier(), c.selected);
        EXPECT_EQ(e->selectedIndex(), c.index);
        EXPECT_EQ(QString::asprintf("%d:%d,%d,%d,%d", seen[4], seen[0], seen[1], seen[2], seen[3]),
                  c.watched);
    }
}

TEST(Enum, ElementsValuesEqualityAndDescriptions)
{
    const auto display = VKTestDisplayEnum::enumWithSelectedIdentifier("feet");
    EXPECT_EQ(display->elementValues(), QVariantList({0.0, 1000.0, 2000.0}));
    EXPECT_EQ(display->possibleKeys(), QStringList({"Timecode", "Frames", "Feet"}));
    // The base element has no "value": the platform's undefined-key failure.
    const auto plain = VKEnumElement::sourceWithIdentifier("a", "A", 1);
    EXPECT_TRUE(
        vkRaisedBy([&] { plain->valueForKey("value"); }).startsWith("NSUnknownKeyException|"));

    // clang-format off
    const std::pair<QVariant, qint64> integers[] = {
        {42, 42}, {3.7, 3}, {-3.7, -3}, {1e30, std::numeric_limits<qint64>::max()}, {true, 1},
        {"12abc", 12}, {QVariant(), 0}, {QVariantList{1, 2}, 0}};
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

    const auto list = VKTestDisplayEnum::elements();
    EXPECT_EQ(display->description(),
              "<VKTestDisplayEnum: " + address(display.get()) +
                  ">{\n\t<VKTestValueElement: " + address(list[0].get()) +
                  "> \"Timecode\" timecode\n\t<VKTestValueElement: " + address(list[1].get()) +
                  "> \"Frames\" frames\n\t<VKTestValueElement: " + address(list[2].get()) +
                  "> \"Feet\" feet (selected)\n}\n");
    // An equal element that is not the listed object is not marked.
    display->setSelectedElement(VKEnumElement::sourceWithIdentifier("feet", "x", {}));
    EXPECT_FALSE(display->description().contains("(selected)"));
    const auto base = VKEnum::enumm();
    EXPECT_EQ(base->description(), "<VKEnum: " + address(base.get()) + ">{\n}\n");
}

TEST(EnumDefaults, LoadsCorrectsStoresAndFollowsTheSelection)
{
    VKTempDir dir;
    VKUserDefaults::setStandardUserDefaultsFolder(dir.path());
    const auto defaults = VKUserDefaults::standardUserDefaults();
    const int listeners = VKNotificationCenter::defaultCenter().observationCount();
    std::shared_ptr<VKTestDisplayEnum> display;
    int posts = 0;
    const auto token = VKNotificationCenter::defaultCenter().addObserver(
        &posts, VDEnumSelectedElementDidChangeNotification, nullptr,
        [&](const VKNotification &) { ++posts; });
    // A new enumeration, with `stored` under its key before.
    const auto make = [&](const QVariant &stored) {
        display.reset();
        defaults->setObject(stored, "display");
        display = VKTestDisplayEnum::enumWithUserDefaultsKey("display");
    };
    // Each step, then "selected stored posts listeners": the selection, what the file holds once
    // written (read by a store of its own), the posts so far and the defaults listeners added.
    // clang-format off
    const std::tuple<const char *, std::function<void()>, QString> steps[] = {
        {"made with nothing stored", [&] { make({}); }, "timecode timecode 1 2"},
        {"made with an identifier stored", [&] { make(QString("feet")); }, "feet feet 3 2"},
        {"made with an unknown one, overwritten", [&] { make(QString("yards")); }, "timecode timecode 4 2"},
        {"selected here", [&] { display->setSelectedIndex(1); }, "frames frames 5 2"},
        {"set elsewhere", [&] { defaults->setObject(QString("feet"), "display"); }, "feet feet 6 2"},
        {"another key", [&] { defaults->setObject(QString("other"), "unrelated"); }, "feet feet 6 2"},
        {"no key, no following",
         [&] { display->setUserDefaultsKey({}); defaults->setObject(QString("timecode"), "display"); }, "feet timecode 6 1"},
        {"a new key reads what is stored", [&] { display->setUserDefaultsKey("display"); }, "timecode timecode 7 2"},
        {"gone, so no longer following", [&] { display.reset(); defaults->setObject(QString("feet"), "display"); }, "- feet 7 1"},
    };
    // clang-format on
    for (const auto &[name, step, expected] : steps) {
        SCOPED_TRACE(name);
        step();
        defaults->synchronize();
        EXPECT_EQ(QStringLiteral("%1 %2 %3 %4")
                      .arg(display ? display->selectedIdentifier() : "-",
                           VKUserDefaults(defaults->filePath()).stringForKey("display"))
                      .arg(posts)
                      .arg(VKNotificationCenter::defaultCenter().observationCount() - listeners),
                  expected);
    }
    EXPECT_EQ(defaults->registeredDefaults().value("display").toString(), "timecode");
    VKNotificationCenter::defaultCenter().removeObservation(token);
    VKUserDefaults::setStandardUserDefaultsFolder({});
}
