// Usage text, configuration lists built in code and read from property-list files, the parse
// result's description and equality, and VKPrint's output.
#include "Application/VKApplication.h"
#include "Application/VKPrint.h"
#include "Foundation/VKException.h"

#include "VKTestSupport.h"

#include <gtest/gtest.h>
#include <plist/plist.h>

#include <cstdlib>
#include <cstring>
#include <functional>

namespace {

using Options = VKApplicationOptionConfigurationList;

class ListedElsewhereOption : public VKApplicationOptionConfiguration
{
public:
    using VKApplicationOptionConfiguration::VKApplicationOptionConfiguration;
};

class ListedElsewhereParameter : public VKApplicationParameterConfiguration
{
public:
    using VKApplicationParameterConfiguration::VKApplicationParameterConfiguration;
};

class TaggedArguments : public VKApplicationArguments
{
public:
    using VKApplicationArguments::VKApplicationArguments;
};

// A property list written through the library's own reader's counterpart.
QByteArray propertyList(const char *xml, bool binary)
{
    if (!binary)
        return QByteArray(xml);
    plist_t root = nullptr;
    plist_from_xml(xml, uint32_t(strlen(xml)), &root);
    char *data = nullptr;
    uint32_t length = 0;
    plist_to_bin(root, &data, &length);
    QByteArray result(data, length);
    std::free(data);
    plist_free(root);
    return result;
}

QString describeConfiguration(const std::shared_ptr<VKApplicationOptionConfiguration> &c)
{
    QString text = c->longIdentifier() + u'|' + c->shortIdentifier() + u'|' + c->usageDescription();
    if (const auto *p = dynamic_cast<const VKApplicationParameterConfiguration *>(c.get()))
        text += QStringLiteral("|%1|%2").arg(p->parameterType()).arg(p->parameterName());
    if (c->longIdentifier().isNull())
        text += QStringLiteral("|null-long");
    return text;
}

QStringList describeConfigurations(const Options &list)
{
    QStringList result;
    for (const auto &c : list)
        result.append(describeConfiguration(c));
    return result;
}

} // namespace

TEST(ApplicationUsage, ListsExactClassesOnlyInOrder)
{
    Options options = VKApplication::optionsWithLongIdentifierShortIdentifierAndUsage(
        {"verbose", "v", "Talk more."});
    options.append(std::make_shared<ListedElsewhereOption>("hidden", "H", "Not listed."));
    options += VKApplication::parametersWithLongIdentifierShortIdentifierUsageTypeAndName(
        {"rate", "r", QString::fromUtf8("Bildrate in fps – 25 oder 30."), "float", "fps"});
    options.append(std::make_shared<ListedElsewhereParameter>("tag", "t", "Not listed.", 0, "x"));
    options.append(nullptr);
    options.append(std::make_shared<VKApplicationOptionConfiguration>());
    auto configuration = std::make_shared<VKApplicationConfiguration>(
        QString::fromUtf8("usage: tool [-v] file…"), "See the manual.", options);

    EXPECT_EQ(VKApplication::usageText(configuration).toUtf8(),
              QByteArray("usage: tool [-v] file\xe2\x80\xa6\n\n"
                         "OPTIONS\n"
                         "\t-v, --verbose\n\t\tTalk more.\n\n"
                         "\t-r, --rate <fps>\n\t\tBildrate in fps \xe2\x80\x93 25 oder 30.\n\n"
                         "\t-, --\n\t\t\n\n"
                         "\nSee the manual.\n"));

    // The hidden classes still parse.
    auto parsed = VKApplication::parseRawArguments({"-H", "-t", "x"}, configuration);
    EXPECT_EQ(parsed->options(), QStringList{"hidden"});
    EXPECT_EQ(parsed->parameters(), (QVariantMap{{"tag", "x"}}));
}

TEST(ApplicationUsage, EmptyListHasNoOptionsHeader)
{
    auto configuration = std::make_shared<VKApplicationConfiguration>("usage: x", "end", Options{});
    EXPECT_EQ(VKApplication::usageText(configuration), QStringLiteral("usage: x\n\n\nend\n"));
    configuration = std::make_shared<VKApplicationConfiguration>();
    EXPECT_EQ(VKApplication::usageText(configuration), QStringLiteral("\n\n\n\n"));
    // A list of only hidden classes still opens the header.
    configuration->setOptionConfigurations(
        {std::make_shared<ListedElsewhereOption>("a", "b", "c")});
    EXPECT_EQ(VKApplication::usageText(configuration), QStringLiteral("\n\nOPTIONS\n\n\n"));

    // Before a run there is no delegate class, so nothing is printed.
    testing::internal::CaptureStdout();
    VKApplication().printUsage();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(ApplicationConfigurationLists, GroupsMustBeComplete)
{
    const Options options = VKApplication::optionsWithLongIdentifierShortIdentifierAndUsage(
        {"one", "1", "first", "two", "2", "second", QString(), "ignored", "after", "nil"});
    EXPECT_EQ(describeConfigurations(options), (QStringList{"one|1|first", "two|2|second"}));
    EXPECT_TRUE(VKApplication::optionsWithLongIdentifierShortIdentifierAndUsage({}).isEmpty());
    // Empty strings are items; only a null string ends the list.
    EXPECT_EQ(VKApplication::optionsWithLongIdentifierShortIdentifierAndUsage({"", "", ""}).size(),
              1);

    const auto raised = [](const std::function<void()> &call) -> QString {
        try {
            call();
        } catch (const VKException &exception) {
            return exception.name() + u'|' + exception.reason();
        }
        return QStringLiteral("no exception");
    };
    const QString three = "NSInvalidArgumentException|number of variable arguments must be a "
                          "multiple of 3";
    const QString five = QString(three).replace(u'3', u'5');
    using A = VKApplication;
    EXPECT_EQ(raised([] {
                  A::optionsWithLongIdentifierShortIdentifierAndUsage({"a", "b", "c", "d"});
              }),
              three);
    EXPECT_EQ(raised([] {
                  A::optionsWithLongIdentifierShortIdentifierAndUsage({"a", "b", QString(), "c"});
              }),
              three);
    EXPECT_EQ(raised([] {
                  A::parametersWithLongIdentifierShortIdentifierUsageTypeAndName(
                      {"a", "b", "c", "int", "n", "x", "y", "z", "float"});
              }),
              five);
    EXPECT_EQ(raised([] {
                  A::parametersWithLongIdentifierShortIdentifierUsageTypeAndName({"a", "b", "c"});
              }),
              five);
}

TEST(ApplicationConfigurationFiles, ReadsParametersThenOptionsFromXmlAndBinary)
{
    const char *xml = R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
    <key>options</key>
    <array>
        <dict>
            <key>longIdentifier</key><string>verbose</string>
            <key>shortIdentifier</key><string>v</string>
            <key>usageDescription</key><string>Mehr ausgeben – bitte.</string>
            <key>colour</key><string>ignored</string>
        </dict>
        <string>not a dictionary</string>
        <dict>
            <key>longIdentifier</key><integer>5</integer>
            <key>shortIdentifier</key><string>q</string>
        </dict>
    </array>
    <key>parameters</key>
    <array>
        <dict>
            <key>longIdentifier</key><string>count</string>
            <key>shortIdentifier</key><string>c</string>
            <key>usageDescription</key><string>How many.</string>
            <key>parameterType</key><integer>1</integer>
            <key>parameterName</key><string>n</string>
        </dict>
        <array><string>nested</string></array>
        <dict>
            <key>longIdentifier</key><string>rate</string>
            <key>parameterType</key><string>2</string>
        </dict>
        <dict>
            <key>longIdentifier</key><string>name</string>
            <key>parameterType</key><string>float</string>
        </dict>
        <dict>
            <key>longIdentifier</key><string>scale</string>
            <key>parameterType</key><real>2.9</real>
        </dict>
    </array>
    <key>unknown</key><true/>
</dict>
</plist>
)";
    for (const bool binary : {false, true}) {
        SCOPED_TRACE(binary ? "binary" : "xml");
        VKTempDir dir;
        const QString path = dir.writeFile("tool.plist", propertyList(xml, binary));
        const Options options = VKApplication::applicationConfigurationFromFileAtPath(path);
        EXPECT_EQ(
            describeConfigurations(options),
            (QStringList{"count|c|How many.|1|n", "rate|||2|", "name|||0|", "scale|||2|",
                         QString::fromUtf8("verbose|v|Mehr ausgeben – bitte."), "|q||null-long"}));
        ASSERT_EQ(options.size(), 6);
        EXPECT_EQ(typeid(*options[4]), typeid(VKApplicationOptionConfiguration));
        EXPECT_TRUE(options[1]->shortIdentifier().isNull());
    }
}

TEST(ApplicationConfigurationFiles, AnswersNothingForUnusableFiles)
{
    VKTempDir dir;
    const QByteArray header = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">";
    const struct
    {
        const char *name;
        QByteArray contents;
    } files[] = {
        {"empty", ""},
        {"garbage", "this is not a property list at all"},
        {"truncated", header + "<dict><key>options</key><array><dict>"},
        {"array-root", header + "<array><dict><key>longIdentifier</key><string>a</string>"
                                "</dict></array></plist>"},
        {"empty-lists", header + "<dict><key>options</key><array/><key>parameters</key>"
                                 "<array/></dict></plist>"},
        {"wrong-types", header + "<dict><key>options</key><string>a</string><key>parameters"
                                 "</key><dict/></dict></plist>"},
        {"truncated-binary", propertyList("<plist><dict><key>options</key><array><dict/></array>"
                                          "</dict></plist>",
                                          true)
                                 .left(20)},
    };
    for (const auto &file : files) {
        SCOPED_TRACE(file.name);
        EXPECT_TRUE(VKApplication::applicationConfigurationFromFileAtPath(
                        dir.writeFile(file.name, file.contents))
                        .isEmpty());
    }
    EXPECT_TRUE(
        VKApplication::applicationConfigurationFromFileAtPath(dir.filePath("missing")).isEmpty());
    EXPECT_TRUE(VKApplication::applicationConfigurationFromFileAtPath(dir.path()).isEmpty());
    EXPECT_TRUE(VKApplication::applicationConfigurationFromFileAtPath(QString()).isEmpty());
}

TEST(ApplicationArguments, DescriptionAndEquality)
{
    const VKApplicationArguments arguments({"a b", "c"}, {{"rate", 2.5f}, {"out", "x.txt"}},
                                           {"verbose"});
    EXPECT_EQ(arguments.description().toStdString(),
              "Arguments: (\n    \"a b\",\n    c\n) \n\n Parameters: {\n    out = x.txt;\n"
              "    rate = 2.5;\n} \n\n Options: (\n    verbose\n)");
    EXPECT_EQ(VKApplicationArguments().description().toStdString(),
              "Arguments: (\n) \n\n Parameters: {\n} \n\n Options: (\n)");

    const VKApplicationArguments same({"a b", "c"}, {{"out", "x.txt"}, {"rate", 2.5}}, {"verbose"});
    EXPECT_TRUE(arguments.isEqual(&same)); // numbers compare by value, not by type
    EXPECT_FALSE(arguments.isEqual(nullptr));
    const QVariantMap fewer{{"out", "x.txt"}};
    const VKApplicationArguments different[] = {{{"c", "a b"}, same.parameters(), same.options()},
                                                {{"a b", "c"}, same.parameters(), {}},
                                                {{"a b", "c"}, fewer, {"verbose"}}};
    for (const VKApplicationArguments &other : different)
        EXPECT_FALSE(arguments.isEqual(&other)) << other.description().toStdString();

    // A subclass object may equal a base object, not the other way round.
    const TaggedArguments tagged({"a b", "c"}, same.parameters(), {"verbose"});
    EXPECT_TRUE(arguments.isEqual(&tagged));
    EXPECT_FALSE(tagged.isEqual(&arguments));
}

TEST(ApplicationPrint, FormatsDoublesPercentPairsAndHandlesNil)
{
    testing::internal::CaptureStdout();
    VKPrint(QString());
    VKPrint(QStringLiteral("%@"), QStringLiteral("100%%"));
    VKPrint(QStringLiteral("100%% of %d"), 3);            // the format's own escape is one sign
    VKPrint(QStringLiteral("%@"), QStringLiteral("%%%")); // pairs are counted left to right
    VKPrint(QStringLiteral("%@ – %s"), QString::fromUtf8("Grüße 😀"), "ü");
    VKPrint(QStringLiteral(""));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              std::string("nil\n"
                          "100%%%%\n"
                          "100% of 3\n"
                          "%%%%%\n"
                          "Gr\xc3\xbc\xc3\x9f"
                          "e \xf0\x9f\x98\x80 \xe2\x80\x93 \xc3\xbc\n"
                          "\n"));
}
