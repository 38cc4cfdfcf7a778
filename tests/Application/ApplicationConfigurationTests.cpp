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

class MoreTaggedArguments : public TaggedArguments
{
public:
    using TaggedArguments::TaggedArguments;
};

// The property list as XML, or converted to the binary form.
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

// "long|short|usage", with "|type|name" for parameters and "|null-long" for a null identifier.
QStringList describe(const Options &list)
{
    QStringList result;
    for (const auto &c : list) {
        QString text =
            c->longIdentifier() + u'|' + c->shortIdentifier() + u'|' + c->usageDescription();
        if (const auto *p = dynamic_cast<const VKApplicationParameterConfiguration *>(c.get()))
            text += QStringLiteral("|%1|%2").arg(p->parameterType()).arg(p->parameterName());
        if (c->longIdentifier().isNull())
            text += QStringLiteral("|null-long");
        result.append(text);
    }
    return result;
}

} // namespace

TEST(ApplicationUsage, ListsExactClassesOnlyInOrder)
{
    Options options = VKApplication::optionsWithLongIdentifierShortIdentifierAndUsage(
        {"verbose", "v", "Talk more."});
    options.append(std::make_shared<ListedElsewhereOption>("hidden", "H", "Not listed."));
    options += VKApplication::parametersWithLongIdentifierShortIdentifierUsageTypeAndName(
        {"rate", "r", QString::fromUtf8("Bildrate – 25."), "float", "fps"});
    options.append(std::make_shared<ListedElsewhereParameter>(
        "tag", "t", "Not listed.", VKApplicationParameterTypeString, "x"));
    options.append(nullptr);
    options.append(std::make_shared<VKApplicationOptionConfiguration>());
    const auto configuration = std::make_shared<VKApplicationConfiguration>(
        QString::fromUtf8("usage: tool file…"), "See the manual.", options);
    EXPECT_EQ(VKApplication::usageText(configuration).toUtf8(),
              QByteArray("usage: tool file\xe2\x80\xa6\n\n"
                         "OPTIONS\n"
                         "\t-v, --verbose\n\t\tTalk more.\n\n"
                         "\t-r, --rate <fps>\n\t\tBildrate \xe2\x80\x93 25.\n\n"
                         "\t-, --\n\t\t\n\n"
                         "\nSee the manual.\n"));

    // No header for an empty list, even with null texts; a header for only hidden classes.
    using C = VKApplicationConfiguration;
    // clang-format off
    const std::pair<std::shared_ptr<C>, QString> cases[] = {
        {std::make_shared<C>("usage: x", "end", Options{}), "usage: x\n\n\nend\n"},
        {std::make_shared<C>(), "\n\n\n\n"}, {nullptr, "\n\n\n\n"},
        {std::make_shared<C>("", "",
         Options{std::make_shared<ListedElsewhereOption>("a", "b", "c")}),
         "\n\nOPTIONS\n\n\n"},
    };
    // clang-format on
    for (const auto &[configuration, text] : cases)
        EXPECT_EQ(VKApplication::usageText(configuration), text);

    // Before a run there is no delegate class, so nothing is printed.
    testing::internal::CaptureStdout();
    VKApplication().printUsage();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(ApplicationConfigurationLists, GroupsUpToTheFirstNullMustBeComplete)
{
    EXPECT_EQ(describe(VKApplication::optionsWithLongIdentifierShortIdentifierAndUsage(
                  {"one", "1", "first", "two", "2", "second", QString(), "ignored"})),
              (QStringList{"one|1|first", "two|2|second"}));
    EXPECT_EQ(
        describe(VKApplication::optionsWithLongIdentifierShortIdentifierAndUsage({"", "", ""})),
        QStringList{"||"});
    // Only "int" and "float" name numeric types.
    EXPECT_EQ(describe(VKApplication::parametersWithLongIdentifierShortIdentifierUsageTypeAndName(
                  {"a", "a", "", "int", "", "b", "b", "", "float",  "",
                   "c", "c", "", "Int", "", "d", "d", "", "double", "n"})),
              (QStringList{"a|a||1|", "b|b||2|", "c|c||0|", "d|d||0|n"}));

    using A = VKApplication;
    const QString three =
        "NSInvalidArgumentException|number of variable arguments must be a multiple of 3";
    const QString five = QString(three).replace(u'3', u'5');
    // clang-format off
    const std::pair<std::function<void()>, QString> cases[] = {
        {[] { A::optionsWithLongIdentifierShortIdentifierAndUsage({"a", "b", "c", "d"}); }, three},
        {[] { A::optionsWithLongIdentifierShortIdentifierAndUsage({"a", "b", QString(), "c"}); }, three},
        {[] { A::parametersWithLongIdentifierShortIdentifierUsageTypeAndName({"a", "b", "c", "int", "n", "x", "y", "z", "float"}); }, five},
        {[] { A::parametersWithLongIdentifierShortIdentifierUsageTypeAndName({"a", "b", "c"}); }, five},
        {[] { A::optionsWithLongIdentifierShortIdentifierAndUsage({}); }, "no exception"},
    };
    // clang-format on
    for (const auto &[call, raised] : cases)
        EXPECT_EQ(vkRaisedBy(call), raised);
}

TEST(ApplicationConfigurationFiles, ReadsParametersThenOptionsFromXmlAndBinary)
{
    // Parameters come first whatever the order in the file; entries that are not dictionaries,
    // unknown keys and values that are not strings (as identifiers) are left out.
    const char *xml = R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict>
<key>options</key><array>
  <dict><key>longIdentifier</key><string>verbose</string><key>shortIdentifier</key><string>v</string>
    <key>usageDescription</key><string>Mehr – bitte.</string><key>colour</key><string>x</string></dict>
  <string>not a dictionary</string>
  <dict><key>longIdentifier</key><integer>5</integer><key>shortIdentifier</key><string>q</string></dict>
</array>
<key>parameters</key><array>
  <dict><key>longIdentifier</key><string>count</string><key>shortIdentifier</key><string>c</string>
    <key>usageDescription</key><string>How many.</string><key>parameterType</key><integer>1</integer>
    <key>parameterName</key><string>n</string></dict>
  <array><string>nested</string></array>
  <dict><key>longIdentifier</key><string>rate</string><key>parameterType</key><string>2</string></dict>
  <dict><key>longIdentifier</key><string>name</string><key>parameterType</key><string>float</string></dict>
  <dict><key>longIdentifier</key><string>scale</string><key>parameterType</key><real>2.9</real></dict>
  <dict><key>longIdentifier</key><string>yes</string><key>parameterType</key><true/></dict>
  <dict><key>longIdentifier</key><string>no</string><key>parameterType</key><false/></dict>
</array><key>unknown</key><true/></dict></plist>)";
    for (const bool binary : {false, true}) {
        SCOPED_TRACE(binary ? "binary" : "xml");
        VKTempDir dir;
        const Options options = VKApplication::applicationConfigurationFromFileAtPath(
            dir.writeFile("tool.plist", propertyList(xml, binary)));
        EXPECT_EQ(describe(options),
                  (QStringList{"count|c|How many.|1|n", "rate|||2|", "name|||0|", "scale|||2|",
                               "yes|||1|", "no|||0|", QString::fromUtf8("verbose|v|Mehr – bitte."),
                               "|q||null-long"}));
        ASSERT_EQ(options.size(), 8);
        EXPECT_EQ(typeid(*options[6]), typeid(VKApplicationOptionConfiguration));
        EXPECT_TRUE(options[1]->shortIdentifier().isNull());
    }
}

TEST(ApplicationConfigurationFiles, AnswersNothingForUnusableFiles)
{
    VKTempDir dir;
    const QByteArray header = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">";
    // clang-format off
    const std::pair<const char *, QByteArray> files[] = {
        {"empty", ""},
        {"garbage", "this is not a property list at all"},
        {"truncated", header + "<dict><key>options</key><array><dict>"},
        {"array-root", header + "<array><dict><key>longIdentifier</key><string>a</string></dict></array></plist>"},
        {"empty-lists", header + "<dict><key>options</key><array/><key>parameters</key><array/></dict></plist>"},
        {"wrong-types", header + "<dict><key>options</key><string>a</string><key>parameters</key><dict/></dict></plist>"},
    };
    // clang-format on
    for (const auto &[name, contents] : files)
        EXPECT_TRUE(
            VKApplication::applicationConfigurationFromFileAtPath(dir.writeFile(name, contents))
                .isEmpty())
            << name;
    for (const QString &path : {dir.filePath("missing"), dir.path(), QString()})
        EXPECT_TRUE(VKApplication::applicationConfigurationFromFileAtPath(path).isEmpty()) << path;
}

TEST(ApplicationArguments, DescriptionAndEquality)
{
    const VKApplicationArguments arguments({"a b", "c"}, {{"rate", 2.5f}, {"out", "x.txt"}},
                                           {"verbose"});
    EXPECT_EQ(arguments.description(),
              "Arguments: (\n    \"a b\",\n    c\n) \n\n Parameters: {\n    out = x.txt;\n"
              "    rate = 2.5;\n} \n\n Options: (\n    verbose\n)");
    EXPECT_EQ(VKApplicationArguments().description(),
              "Arguments: (\n) \n\n Parameters: {\n} \n\n Options: (\n)");

    const QStringList args{"a b", "c"};
    const QVariantMap parameters{{"out", "x.txt"}, {"rate", 2.5}};
    const VKApplicationArguments same(args, parameters, {"verbose"});
    EXPECT_TRUE(arguments.isEqual(&same)); // numbers compare by value, not by type
    EXPECT_TRUE(arguments.isEqual(&arguments));
    EXPECT_FALSE(arguments.isEqual(nullptr));
    const VKApplicationArguments different[] = {{{"c", "a b"}, parameters, {"verbose"}},
                                                {args, parameters, {}},
                                                {args, {{"out", "x.txt"}}, {"verbose"}}};
    for (const VKApplicationArguments &other : different)
        EXPECT_FALSE(arguments.isEqual(&other)) << other.description().toStdString();

    // The other object may be of the receiver's class or of any class below it, at any depth.
    const TaggedArguments tagged(args, parameters, {"verbose"});
    const MoreTaggedArguments moreTagged(args, parameters, {"verbose"});
    const struct
    {
        const VKApplicationArguments *receiver, *other;
        bool equal;
    } kinds[] = {{&arguments, &tagged, true},   {&arguments, &moreTagged, true},
                 {&tagged, &moreTagged, true},  {&tagged, &arguments, false},
                 {&moreTagged, &tagged, false}, {&moreTagged, &arguments, false}};
    for (const auto &k : kinds)
        EXPECT_EQ(k.receiver->isEqual(k.other), k.equal)
            << typeid(*k.receiver).name() << " " << typeid(*k.other).name();
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
              std::string("nil\n100%%%%\n100% of 3\n%%%%%\n"
                          "Gr\xc3\xbc\xc3\x9f"
                          "e \xf0\x9f\x98\x80 \xe2\x80\x93 \xc3\xbc\n\n"));
}
