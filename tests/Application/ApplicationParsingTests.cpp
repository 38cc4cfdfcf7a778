// Command-line parsing: token forms, parameter values and their numeric readings, lookup rules.
#include "Application/VKApplication.h"
#include "Foundation/VKException.h"

#include "VKTestSupport.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

using Options = VKApplicationOptionConfigurationList;
using P = VKApplicationParameterConfiguration;

std::shared_ptr<VKApplicationConfiguration> configurationWith(const Options &options)
{
    return std::make_shared<VKApplicationConfiguration>("prefix", "suffix", options);
}

// -v/--verbose, -o/--out <string>, -c/--count <int>, -r/--rate <float>.
std::shared_ptr<VKApplicationConfiguration> toolConfiguration()
{
    Options options = VKApplication::optionsWithLongIdentifierShortIdentifierAndUsage(
        {"verbose", "v", "Talk more."});
    options += VKApplication::parametersWithLongIdentifierShortIdentifierUsageTypeAndName(
        {"out", "o", "Output file.", "string", "file", //
         "count", "c", "How many.", "int", "n",        //
         "rate", "r", "Frames per second.", "float", "fps"});
    return configurationWith(options);
}

std::shared_ptr<VKApplicationArguments>
parse(const QStringList &tokens,
      const std::shared_ptr<VKApplicationConfiguration> &configuration = toolConfiguration())
{
    return VKApplication::parseRawArguments(tokens, configuration);
}

class TaggedParameterConfiguration : public VKApplicationParameterConfiguration
{
public:
    using VKApplicationParameterConfiguration::VKApplicationParameterConfiguration;
};

} // namespace

TEST(ApplicationParsing, SortsTokensIntoArgumentsParametersAndOptions)
{
    const QString name = QString::fromUtf8("Grüße – 日本語 😀");
    // clang-format off
    const struct
    {
        const char *name;
        QStringList tokens, arguments, options;
        QVariantMap parameters;
    } cases[] = {
        // clang-format off
        {"one of each", {"-v", "--out", "x.txt", "file"}, {"file"}, {"verbose"}, {{"out", "x.txt"}}},
        {"unknown tokens keep their dashes and place", {"a", "-unknown", "--unknown", "-", "--", "--verbose", "-ab"},
         {"a", "-unknown", "--unknown", "-", "--", "-ab"}, {"verbose"}, {}},
        {"options repeat, parameters keep the last value", {"-v", "--out", "first", "--verbose", "-o", "second"},
         {}, {"verbose", "verbose"}, {{"out", "second"}}},
        {"no grouping, no =value, case-sensitive", {"-vo", "--out=x", "-V", "--Verbose"}, {"-vo", "--out=x", "-V", "--Verbose"}, {}, {}},
        {"a value is never an option", {"--out", "--verbose", "-o", "-v", "tail"}, {"tail"}, {}, {{"out", "-v"}}},
        {"a parameter as the last token is dropped", {"file", "-v", "--out"}, {"file"}, {"verbose"}, {}},
        {"empty tokens and values", {"", "--out", "", ""}, {"", ""}, {}, {{"out", ""}}},
        {"non-ASCII tokens pass through", {name, "--out", name, "-ü", "—v"}, {name, "-ü", "—v"}, {}, {{"out", name}}},
        {"nothing", {}, {}, {}, {}},
        // clang-format on
    };
    // clang-format on
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const auto result = parse(c.tokens);
        EXPECT_EQ(result->arguments(), c.arguments);
        EXPECT_EQ(result->options(), c.options);
        EXPECT_EQ(result->parameters(), c.parameters);
    }
    // Without a configuration every token is an argument.
    EXPECT_EQ(parse({"-v", "3"}, nullptr)->arguments(), (QStringList{"-v", "3"}));
}

TEST(ApplicationParsing, NumericParametersReadTheLeadingNumber)
{
    // clang-format off
    const struct { const char *text; qint32 integer; float real; } cases[] = {
        // clang-format off
        {"-5", -5, -5.0f}, {"12abc", 12, 12.0f}, {"", 0, 0.0f}, {"+8", 8, 8.0f}, {"1e3", 1, 1000.0f},
        {"-7.25x", -7, -7.25f}, {"  \t19", 19, 19.0f}, {".5", 0, 0.5f}, {"0x1A", 0, 0.0f}, {"1,5", 1, 1.0f},
        {"2147483647", 2147483647, 2147483647.0f}, {"2147483648", 2147483647, 2147483648.0f},
        {"-2147483648", std::numeric_limits<qint32>::min(), -2147483648.0f},
        {"-99999999999999999999", std::numeric_limits<qint32>::min(), -1e20f},
        {"1e39", 1, std::numeric_limits<float>::infinity()},
        // clang-format on
    };
    // clang-format on
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        const QVariantMap parameters = parse({"-c", c.text, "--rate", c.text})->parameters();
        EXPECT_EQ(parameters.value("count").metaType().id(), QMetaType::Int);
        EXPECT_EQ(parameters.value("rate").metaType().id(), QMetaType::Float);
        EXPECT_EQ(parameters.value("count").toInt(), c.integer);
        EXPECT_FLOAT_EQ(parameters.value("rate").toFloat(), c.real);
    }
    // Any other type keeps the text; derived classes parse by kind.
    const Options options{P::parameterConfigurationWithLongIdentifier(
                              "level", "l", "", VKApplicationParameterType(7), "n"),
                          std::make_shared<TaggedParameterConfiguration>(
                              "tagged", "t", "", VKApplicationParameterTypeInteger, "n")};
    EXPECT_EQ(parse({"-l", "12abc", "-t", "3"}, configurationWith(options))->parameters(),
              (QVariantMap{{"level", "12abc"}, {"tagged", 3}}));
}

TEST(ApplicationParsing, LookupIsExactAndFirstMatchWins)
{
    const auto first =
        VKApplicationOptionConfiguration::optionConfigurationWithLongIdentifier("all", "a", "1");
    const auto second =
        VKApplicationOptionConfiguration::optionConfigurationWithLongIdentifier("all", "b", "2");
    const auto nullIdentifiers = std::make_shared<VKApplicationOptionConfiguration>();
    const Options list{nullptr, nullIdentifiers, first, second};
    EXPECT_EQ(VKApplication::configurationWithLongIdentifier("all", list), first);
    EXPECT_EQ(VKApplication::configurationWithShortIdentifier("b", list), second);
    EXPECT_EQ(VKApplication::configurationWithShortIdentifier("B", list), nullptr);
    EXPECT_EQ(VKApplication::configurationWithLongIdentifier("al", list), nullptr);
    // A null identifier matches nothing: not an empty token, not a null one.
    EXPECT_EQ(VKApplication::configurationWithShortIdentifier("", list), nullptr);
    EXPECT_EQ(VKApplication::configurationWithLongIdentifier(QString(), list), nullptr);
    EXPECT_EQ(parse({"-", "--"}, configurationWith(list))->arguments(), (QStringList{"-", "--"}));

    // An empty identifier is a real one: it catches the lone dashes, but a null token does not
    // match it.
    const Options empties{
        VKApplicationOptionConfiguration::optionConfigurationWithLongIdentifier("", "", "stdin")};
    EXPECT_EQ(VKApplication::configurationWithShortIdentifier(QString(), empties), nullptr);
    const auto result = parse({"-", "--", "---"}, configurationWith(empties));
    EXPECT_EQ(result->options(), (QStringList{"", ""}));
    EXPECT_EQ(result->arguments(), QStringList{"---"});
}

TEST(ApplicationParsing, ConfigurationWithoutLongIdentifier)
{
    const Options options{std::make_shared<VKApplicationOptionConfiguration>(QString(), "q", ""),
                          P::parameterConfigurationWithLongIdentifier(
                              QString(), "p", "", VKApplicationParameterTypeString, "")};
    const auto configuration = configurationWith(options);
    // As the last token a parameter is dropped before its identifiers are looked at.
    EXPECT_EQ(vkRaisedBy([&] {
                  EXPECT_EQ(parse({"x", "-p"}, configuration)->arguments(), QStringList{"x"});
              }),
              "no exception");
    EXPECT_EQ(vkRaisedBy([&] {
                  parse({"-p", "v"}, configuration);
              }),
              "NSInvalidArgumentException|the option configuration matching \"-p\" has no long "
              "identifier");
    EXPECT_EQ(vkRaisedBy([&] {
                  parse({"x", "-q"}, configuration);
              }),
              "NSInvalidArgumentException|the option configuration matching \"-q\" has no long "
              "identifier");
}
