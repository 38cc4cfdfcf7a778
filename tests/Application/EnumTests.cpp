#include "Application/VKEnum.h"
#include "Foundation/VKException.h"
#include "Foundation/VKNotificationCenter.h"
#include "Foundation/VKStringRanges.h"
#include "Foundation/VKUserDefaults.h"

#include "EnumTestEnums.h"
#include "VKTestSupport.h"

#include <QProcess>
#include <QProcessEnvironment>

#include <gtest/gtest.h>

#include <limits>

namespace {

// Counts VDEnumSelectedElementDidChangeNotification posts (of any enumeration while alive).
class PostCounter
{
public:
    PostCounter()
    {
        m_token = VKNotificationCenter::defaultCenter().addObserver(
            this, VDEnumSelectedElementDidChangeNotification, nullptr,
            [this](const VKNotification &n) {
                ++count;
                last = n.object().object<VKEnum>();
                EXPECT_TRUE(n.userInfo().isEmpty());
            });
    }
    ~PostCounter() { VKNotificationCenter::defaultCenter().removeObservation(m_token); }
    int count = 0;
    VKEnum *last = nullptr;

private:
    VKNotificationToken m_token = 0;
};

// Counts the changes announced to observers of each key.
struct AnnouncementCounter
{
    explicit AnnouncementCounter(VKEnum &e) : object(e)
    {
        for (const char *key :
             {"selectedElement", "selectedIdentifier", "selectedName", "selectedIndex"})
            tokens << e.observe(key, 0,
                                [this](VKObservable *, const QString &k, const VKKeyValueChange &) {
                                    ++counts[k];
                                });
    }
    ~AnnouncementCounter()
    {
        for (auto token : tokens)
            object.removeObservation(token);
    }
    // "element,identifier,name,index"
    QString line() const
    {
        return QStringLiteral("%1,%2,%3,%4")
            .arg(counts.value("selectedElement"))
            .arg(counts.value("selectedIdentifier"))
            .arg(counts.value("selectedName"))
            .arg(counts.value("selectedIndex"));
    }
    VKEnum &object;
    QList<VKObservationToken> tokens;
    QHash<QString, int> counts;
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

// Runs the probe with its defaults under `state`; its first output line.
QString runProbe(const QString &state, const QStringList &arguments)
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("XDG_STATE_HOME", state);
    process.setProcessEnvironment(environment);
    process.start(vkTestBinaryPath("vkextension_probe"), arguments);
    if (!process.waitForFinished(20000) || process.exitCode() != 0)
        return "failed: " + QString::fromUtf8(process.readAllStandardError());
    return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
}

} // namespace

TEST(Enum, SettersSelectAnnounceAndPost)
{
    struct Case
    {
        const char *name;
        std::function<void(VKTestDisplayEnum &)> change;
        QString selected;
        int posts;
        QString announced; // element,identifier,name,index
    };
    const auto list = VKTestDisplayEnum::elements();
    const QList<Case> cases{
        {"known identifier", [](auto &e) { e.setSelectedIdentifier("feet"); }, "feet", 1,
         "1,2,1,1"},
        {"unknown identifier", [](auto &e) { e.setSelectedIdentifier("yards"); }, "frames", 0,
         "0,1,0,0"},
        {"same identifier", [](auto &e) { e.setSelectedIdentifier("frames"); }, "frames", 0,
         "0,0,0,0"},
        {"null identifier", [](auto &e) { e.setSelectedIdentifier({}); }, "timecode", 1, "1,2,1,1"},
        {"equal element, other object",
         [](auto &e) {
             e.setSelectedElement(VKEnumElement::sourceWithIdentifier("frames", "F", 9));
         },
         "frames", 1, "1,1,1,1"},
        {"same element object", [&](auto &e) { e.setSelectedElement(list.at(1)); }, "frames", 0,
         "0,0,0,0"},
        {"null element", [](auto &e) { e.setSelectedElement(nullptr); }, "timecode", 1, "1,1,1,1"},
        {"name", [](auto &e) { e.setSelectedName("Feet"); }, "feet", 1, "1,1,1,1"},
        {"unknown name", [](auto &e) { e.setSelectedName("feet"); }, "timecode", 1, "1,1,1,1"},
        {"index", [](auto &e) { e.setSelectedIndex(2); }, "feet", 1, "1,1,1,1"},
        {"index at the count", [](auto &e) { e.setSelectedIndex(3); }, "timecode", 1, "1,1,1,1"},
        {"largest index", [](auto &e) { e.setSelectedIndex(std::numeric_limits<quint64>::max()); },
         "timecode", 1, "1,1,1,1"},
        {"by key", [](auto &e) { e.setValueForKey(QString("feet"), "selectedIdentifier"); }, "feet",
         1, "1,2,1,1"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        const auto e = VKTestDisplayEnum::enumWithSelectedIdentifier("frames");
        ASSERT_EQ(e->selectedElement(), list.at(1));
        PostCounter posts;
        AnnouncementCounter announced(*e);
        c.change(*e);
        EXPECT_EQ(e->selectedIdentifier(), c.selected);
        EXPECT_EQ(posts.count, c.posts);
        if (c.posts) {
            EXPECT_EQ(posts.last, e.get());
        }
        EXPECT_EQ(announced.line(), c.announced);
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
    PostCounter posts;
    rates->setSelectedIndex(7);
    EXPECT_NE(rates->selectedElement(), first) << "a new default object each time";
    EXPECT_EQ(posts.count, 1);
    rates->setSelectedIdentifier({}); // null is never equal to null: a walk that finds nothing
    EXPECT_EQ(posts.count, 1);
    rates->setSelectedIdentifier("25");
    EXPECT_EQ(rates->selectedIndex(), 1);
    EXPECT_TRUE(VKEnum::enumm()->elements().isEmpty());
}

TEST(Enum, ElementValuesComeFromTheElementsKeys)
{
    EXPECT_EQ(VKTestRateEnum::enumm()->elementValues(), QVariantList({24.0, 25.0}));
    EXPECT_EQ(VKTestRateEnum::enumm()->possibleKeys(), QStringList({"24 fps", "25 fps"}));
    const auto display = VKTestDisplayEnum::enumm();
    EXPECT_EQ(display->elementNames(), QStringList({"Timecode", "Frames", "Feet"}));
    const auto first = VKTestDisplayEnum::elements().first().get();
    EXPECT_EQ(vkRaisedBy([&] { display->elementValues(); }),
              "NSUnknownKeyException|[<VKEnumElement " + address(first) +
                  "> valueForUndefinedKey:]: this class is not key value coding-compliant for "
                  "the key value.");
}

TEST(Enum, ElementIntegerValueAndEquality)
{
    struct IntegerCase
    {
        const char *name;
        QVariant represented;
        qint64 expected;
    };
    const QList<IntegerCase> integers{
        {"int", 42, 42},
        {"double truncates", 3.7, 3},
        {"negative double truncates", -3.7, -3},
        {"huge double saturates", 1e30, std::numeric_limits<qint64>::max()},
        {"bool", true, 1},
        {"lenient text", QString("12abc"), 12},
        {"text without a number", QString("abc"), 0},
        {"no object", QVariant(), 0},
        {"list", QVariantList{1, 2}, 0},
    };
    for (const auto &c : integers)
        EXPECT_EQ(VKEnumElement::sourceWithIdentifier("i", "n", c.represented)->integerValue(),
                  c.expected)
            << c.name;

    struct EqualCase
    {
        const char *name;
        QString a, b;
        bool equal;
    };
    const QList<EqualCase> equalities{
        {"same identifier", "x", "x", true}, {"other identifier", "x", "y", false},
        {"both null", {}, {}, false},        {"both empty", "", "", true},
        {"null and empty", {}, "", false},
    };
    for (const auto &c : equalities) {
        const auto a = VKEnumElement::sourceWithIdentifier(c.a, "A", 1);
        const auto b = VKEnumElement::sourceWithIdentifier(c.b, "B", 2);
        EXPECT_EQ(a->isEqual(b.get()), c.equal) << c.name;
        EXPECT_EQ(b->isEqual(a.get()), c.equal) << c.name;
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
    struct Case
    {
        const char *name;
        QVariant storedBefore;
        QString selected;
        int postsDuringInit;
    };
    const QList<Case> cases{
        {"nothing stored", {}, "timecode", 1},
        {"stored identifier", QString("feet"), "feet", 2},
        {"unknown identifier is overwritten", QString("yards"), "timecode", 1},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        defaults()->setObject(c.storedBefore, "display");
        PostCounter posts;
        const auto display = VKTestDisplayEnum::enumWithUserDefaultsKey("display");
        EXPECT_EQ(display->selectedIdentifier(), c.selected);
        EXPECT_EQ(posts.count, c.postsDuringInit);
        EXPECT_EQ(stored("display"), c.selected);
        EXPECT_EQ(defaults()->registeredDefaults().value("display").toString(), "timecode");
    }
    // Every later selection is written.
    const auto display = VKTestDisplayEnum::enumWithUserDefaultsKey("display");
    display->setSelectedIndex(1);
    EXPECT_EQ(stored("display"), "frames");
}

TEST_F(EnumDefaults, FollowsChangesMadeElsewhereOnce)
{
    const auto display = VKTestDisplayEnum::enumWithUserDefaultsKey("display");
    PostCounter posts;
    defaults()->setObject(QString("frames"), "display"); // another part of the program
    EXPECT_EQ(display->selectedIdentifier(), "frames");
    EXPECT_EQ(posts.count, 1);
    defaults()->setObject(QString("other"), "unrelated");
    EXPECT_EQ(posts.count, 1);

    // Another process writes the file (after ours is on disk, or our pending value would win);
    // the next synchronisation reads it.
    ASSERT_TRUE(defaults()->synchronize());
    ASSERT_EQ(runProbe(m_dir.path(), {"write", defaults()->filePath(), "display", "feet"}), "");
    defaults()->synchronize();
    EXPECT_EQ(display->selectedIdentifier(), "feet");
    EXPECT_EQ(posts.count, 2);

    // Without a key it stops following.
    display->setUserDefaultsKey({});
    defaults()->setObject(QString("timecode"), "display");
    EXPECT_EQ(display->selectedIdentifier(), "feet");
    EXPECT_EQ(posts.count, 2);
}

TEST_F(EnumDefaults, DestructionStopsListening)
{
    const int before = VKNotificationCenter::defaultCenter().observationCount();
    {
        const auto display = VKTestDisplayEnum::enumWithUserDefaultsKey("display");
        EXPECT_EQ(VKNotificationCenter::defaultCenter().observationCount(), before + 1);
    }
    EXPECT_EQ(VKNotificationCenter::defaultCenter().observationCount(), before);
    defaults()->setObject(QString("feet"), "display"); // reaches no dead enumeration
}

TEST(EnumRestart, TheSelectionSurvivesARestart)
{
    VKTempDir state;
    const QString first = runProbe(state.path(), {"enum", "display"});
    const QString file = first.section(u' ', 1);
    EXPECT_EQ(first.section(u' ', 0, 0), "timecode");
    EXPECT_TRUE(file.startsWith(state.path() + "/Vessan/Preferences/")) << first;
    EXPECT_EQ(VKUserDefaults(file).stringForKey("display"), "timecode")
        << "the default element's identifier is written at start";

    EXPECT_EQ(runProbe(state.path(), {"enum", "display", "feet"}).section(u' ', 0, 0), "feet");
    EXPECT_EQ(runProbe(state.path(), {"enum", "display"}).section(u' ', 0, 0), "feet");

    ASSERT_EQ(runProbe(state.path(), {"write", file, "display", "yards"}), "");
    EXPECT_EQ(runProbe(state.path(), {"enum", "display"}).section(u' ', 0, 0), "timecode");
    EXPECT_EQ(VKUserDefaults(file).stringForKey("display"), "timecode");
}
