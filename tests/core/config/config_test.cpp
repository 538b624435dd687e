// The item tree; the text format: what is accepted and what it means, what is refused and how it is
// reported.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "qel/core/array/qel_array_string.h"
#include "tests/support/log_capture.hpp"
#include "tests/support/parsed.hpp"
#include "tests/support/temp_path.hpp"

namespace {

std::string text_of(const qel_string* s) { return {s->data ? s->data : "", s->length}; }

/// The items by name, "pwd" left out: "a=1 list=[x|y|] s={k=v }".
std::string dump(const qel_config_items* items) {
    Texts sorted;
    if (!items) return "";
    const auto add = [](void* user, void* value) {
        const auto* item = static_cast<const qel_config_item*>(value);
        if (!item || text_of(item->name) == "pwd") return;
        std::string& text = (*static_cast<Texts*>(user))[text_of(item->name)];
        if (item->type == QEL_CONFIG_STRING) text = text_of(item->value.str);
        if (item->type == QEL_CONFIG_SUBITEMS) text = "{" + dump(item->value.subitems) + "}";
        if (item->type != QEL_CONFIG_ARRAY || !item->value.array) return;
        const auto* elements = static_cast<const qel_string*>(item->value.array->data);
        for (uint32_t i = 0; i < item->value.array->count; ++i) text += text_of(&elements[i]) + "|";
        text = "[" + text + "]";
    };
    qel_hash_tree_cleanup(items->hash, &sorted, add);
    std::string line;
    for (const auto& [name, text] : sorted) line += name + "=" + text + " ";
    return line;
}

int32_t feed(const Parser& parser, const std::string& text) {
    return qel_config_ryl_feed(parser.get(), text.data(), static_cast<uint32_t>(text.size()));
}

std::string repeat(const std::string& text, int n) {
    std::string all;
    while (n-- > 0) all += text;
    return all;
}

TEST(ConfigItems, FindsNamesWithOrWithoutTheirEnd) {
    const std::string longest(255, 'n'), too_long(256, 'n');
    const Parser parser = parse("top = 1; s = { inner = 2; }" + longest + "=3;" + too_long + "=4;");
    const std::tuple<std::string, uint32_t, bool> cases[] = {
        {"top", 3, 1},   {"top", 4, 1}, {"topper", 3, 1},  {"top", 2, 0},
        {"inner", 5, 0}, {"", 0, 0},    {longest, 256, 1}, {too_long, 256, 0}};
    for (const auto& [name, n, found] : cases)
        EXPECT_EQ(qel_config_items_find(parser->root, name.c_str(), n) != nullptr, found) << name;
}

TEST(ConfigItems, FollowsPathsInward) {
    const Parser parser = parse("top = 1; aec = { list = [ ] nlp = { deep = 2; } }");
    const std::pair<std::string, std::string> cases[] = {
        {">> a e c >nlp> ", "deep=2 "},
        {" ", dump(parser->root)},
        {"top > nlp", "none"},
        {"aec > list", "none"},
        {"aec\t>nlp", "none"},
        {"aec > nlp" + repeat(" ", 502), "deep=2 "},
        {"aec > nlp" + repeat(" ", 503), "none"}};
    for (const auto& [path, expected] : cases) {
        const auto* items = qel_config_items_find_subitems(parser->root, path.c_str());
        EXPECT_EQ(items ? dump(items) : "none", expected) << path;
    }
}

// What is released twice or not at all, the sanitizers find.
TEST(ConfigItems, ReplacedItemsLiveAsLongAsTheirTree) {
    const Parser parser = parse("a = 1; s = { b = 2; }");
    qel_config_items* root = parser->root;
    qel_config_item* first = qel_config_items_find(root, "a", 1);
    qel_config_item* section = qel_config_items_find(root, "s", 1);
    qel_config_items_add_array(root, "a", qel_array_string_new(2));
    qel_config_items_add_string(root, "s", "text");
    EXPECT_EQ(dump(root), "a=[] s=text ");
    EXPECT_EQ(text_of(first->value.str) + dump(section->value.subitems), "1b=2 ");

    qel_config_item* second = qel_config_items_find(root, "a", 1);
    EXPECT_EQ(qel_config_items_add(root, "a", second), -1) << "the same item again";
    EXPECT_EQ(qel_config_items_remove(root, "a"), 0);
    EXPECT_EQ(qel_config_items_add(root, "a", first), -1) << "a replaced item comes back";
    EXPECT_EQ(qel_config_items_add(root, "s", section), -1);
    EXPECT_EQ(dump(root), "a=1 s={b=2 } ");
    EXPECT_EQ(qel_config_items_add(root, "other", second), 0);

    qel_config_items* shared = qel_config_items_find_subitems(root, "s");
    for (const char* name : {"t", "t", "u"}) qel_config_items_add_subitems(root, name, shared);
    qel_config_items_add_subitems(shared, "none", nullptr);
    qel_array* array = qel_array_string_new(1);
    const LogCapture log;
    qel_config_items_add_array(shared, "l", nullptr);
    EXPECT_EQ(log.text(), "");
    for (int i = 0; i < 2; ++i) qel_config_items_add_array(shared, "m", array);
    EXPECT_TRUE(log.has("held by an item already"));
    EXPECT_EQ(qel_config_items_find_subitems(root, "u > none"), nullptr);
    EXPECT_EQ(qel_config_items_find(shared, "none", 4)->type, QEL_CONFIG_SUBITEMS);
    EXPECT_EQ(qel_config_items_find(shared, "l", 1)->type, QEL_CONFIG_ARRAY);
    qel_config_items_delete(shared);
    EXPECT_EQ(dump(shared).substr(0, 4), "b=2 ") << "a section that items hold stays";
}

TEST(ConfigItems, WritesNothingBehindARecordOfTheCaller) {
    auto* own =
        static_cast<qel_config_item*>(malloc(4 * sizeof(void*)));  // three fields, and a guard
    memset(static_cast<void*>(own), 0x55, 4 * sizeof(void*));
    own->type = QEL_CONFIG_STRING;
    own->name = qel_string_new("a", 1);
    own->value.str = qel_string_new("1", 1);
    qel_config_items* items = qel_config_items_new(nullptr);
    qel_config_items_add(items, "a", own);
    qel_config_items_add_string(items, "a", "2");
    EXPECT_EQ(reinterpret_cast<char*>(own)[3 * sizeof(void*)], 0x55);
    qel_config_items_delete(items);
}

/// Takes an item out of its section and releases it.
void take_away(qel_config_items* items, const char* name) {
    qel_config_item* item = qel_config_items_find(items, name, 20);
    qel_config_items_remove(items, name);
    if (item->type == QEL_CONFIG_SUBITEMS) qel_config_items_delete(item->value.subitems);
    if (item->type == QEL_CONFIG_ARRAY) qel_array_delete(item->value.array);
    qel_string_delete(item->name);
    free(item);
}

TEST(ConfigRyl, ForgetsWhatACallerTookAway) {
    const std::tuple<std::string, std::string, std::string, std::string> cases[] = {
        // fed first, taken away, fed then, what is left
        {"s = { a = 1; }", "s", "s = { b = 2; }", "s={b=2 } "},
        {"s = { t = { a = 1;", "s", "b = 2; } c = 3;", "b=2 "},
        {"s = { t = { a = 1; }", "s", "b = 2;", "b=2 "},
        {"l = [ a, b, ", "l", "c ] d = 1;", "d=1 "}};
    for (const auto& [first, name, then, left] : cases) {
        const LogCapture log;
        const Parser parser = parse(" ");
        EXPECT_EQ(feed(parser, first), 0);
        take_away(parser->root, name.c_str());
        feed(parser, then);
        EXPECT_EQ(dump(parser->root), left) << first;
        EXPECT_EQ(parser->sections.count, left.find('{') != std::string::npos ? 1u : 0u);
    }
    const Parser own = parse(" ");
    qel_config_items_add_subitems(own->root, "s", qel_config_items_new(nullptr));
    EXPECT_EQ(feed(own, "s = { a = 1; } b = 2; s = {"), 0) << "a section of a caller's";
    take_away(own->root, "s");
    EXPECT_EQ(feed(own, "c = 3;"), 0);
    EXPECT_EQ(dump(own->root), "b=2 c=3 ");

    const Parser parser = parse(" ");
    feed(parser, "s = { t = { a = 1;");
    auto* const inner = qel_config_items_find_subitems(parser->root, "s > t");
    qel_config_items_add_subitems(parser->root, "kept", inner);
    take_away(parser->root, "s");
    EXPECT_EQ(feed(parser, "b = 1; } c = 2;"), 0) << "it stands in the root now";
    EXPECT_EQ(dump(parser->root), "c=2 kept={a=1 b=1 } ");

    Parser gone = parse("s = { t = { a = 1; } }");
    qel_config_item* kept = qel_config_items_find(gone->root, "s", 1);
    qel_config_items_remove(gone->root, "s");
    gone.reset();
    EXPECT_EQ(dump(kept->value.subitems), "t={a=1 } ") << "outlives its parser";
    qel_config_items* root = qel_config_items_new(nullptr);
    qel_config_items_add(root, "s", kept);
    qel_config_items_delete(root);
}

TEST(ConfigRyl, BoundsWhatOneConfigurationReads) {
    Texts files;
    const auto include = [](const std::string& name) { return "#include " + name + ";"; };
    files["f"] = " ";
    files["g"] = repeat(include("f"), 24) + " ";
    files["large"] = std::string(6 << 20, ' ');
    std::string grows = "x = " + std::string(1 << 19, 'x') + ";";
    const std::pair<std::string, std::string> cases[] = {
        {repeat(include("g"), 40) + include("f"), "more than 1000 files"},
        {repeat(include("large"), 3), "too large: \"large\""},
        {grows + repeat("a = ${x}${x};", 17), "variables stand for more than 16777216 bytes"}};
    for (const auto& [text, message] : cases) {
        const LogCapture log;
        EXPECT_EQ(parse(text, &files), nullptr);
        EXPECT_TRUE(log.has(message)) << message;
    }
    EXPECT_TRUE(parse(repeat(include("g"), 40), &files));
}

TEST(ConfigRyl, AcceptsAndMeans) {
    const std::pair<std::string, std::string> cases[] = {
        {"a b=1;;{ (x=\"x y\" \t\n; c = 1", "ab=1 x=x y "},
        {"\"a b'=\" ignored = 1; 'q\"' = 2;", "a b'==1 q\"=2 "},
        {"a.-/:@_Z9 = A_-./:; a = 1; a = 2;", "a=2 a.-/:@_Z9=A_-./: "},
        {"s = 1; s = { k = v; } s = { j = w; } t = { } t = \"\"; u = {", "s={j=w k=v } t= u={} "},
        {R"(a = "\x41\X6A\n\r\t\\\"\q"; b = 1\x41\;2;)", "a=Aj\n\r\t\\\"q b=1A;2 "},
        {R"(a = "\101"; l = [a"b\c ,d] m = [])", "a= l=[a\"b\\c|d|] m=[] "},
        {R"(l = [ a, "b c", 'd"\'e' ] m = [a,,b] n = ["",])", "l=[a|b c|d\"'e|] m=[a|b|] n=[|] "},
        {"x = 1; s = { x = { y = -${x}.${ x }; } }", "s={x={y=-1.1 } } x=1 "},
        {"x = 1; a = \"${x}\"; l = [ ${x}, a${x}b, ${x}\"q\" ]", "a=${x} l=[1|a1b|1\"q\"|] x=1 "},
        {"e = \"\"; l = [ ${e}'q r', ${e} ]", "e= l=[q r|] "},
        {"# a = 1;\nb = ${pwd}; #includ\nc = 3; # include x;\n", "b=etc c=3 "}};
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(dump(parse(text)->root), expected) << text;
        const Parser pieces = parse(" ");
        for (const char c : text) EXPECT_EQ(feed(pieces, {c}), 0);
        EXPECT_EQ(dump(pieces->root), expected) << "byte by byte: " << text;
    }
}

TEST(ConfigRyl, RefusesWithAMessage) {
    Texts files = {{"a", "#include b;"}, {"b", "#include a;"}, {"empty", ""}};
    for (char c = 'a'; c < 'q'; ++c) files[{'n', c}] = "#include n" + std::string(1, c + 1) + ";";
    const struct {
        std::string text, message;
        const char* at;  // of "invalid format": the bytes before the failing one, and the state
    } cases[] = {
        {"a!", "invalid char '!'", "[a] at 1"},
        {"a = .5;", "invalid char '.'", "[a = ] at 3"},
        {"a = @x;", "expect var value @ end.", "[a = ] at 4"},
        {"a = 1 ;", "expect var value   end.", "[a = 1] at 4"},
        {"a = \"1\" 2;", "expect \";\"", "[a = \"1\" ] at 5"},
        {"a = $x;", "expect var '{' start.", "[a = $] at 7"},
        {"a = ${!};", "expect expr tok start.", "[a = ${] at 8"},
        {"a = ${};", "var ${} not found.", "[a = ${] at 9"},
        {"s={}a=${s};", "var ${s} not found.", "[s={}a=${s] at 9"},
        {"l = [ a b ]", "expect array tok like \",\" or \"]\", but found [b]", "[l = [ a ] at 12"},
        {"a = 1; }", "", "[a = 1; ] at 0"},
        {R"(a = "\xg";)", "", R"([a = "\x] at 14)"},
        {R"(a = "\x1";)", "", R"([a = "\x1] at 15)"},
        {R"(a = "\18";)", "", R"([a = "\1] at 16)"},
        {R"(a = "\118";)", "", R"([a = "\11] at 17)"},
        {repeat("s={", 256), "too many nested sections: \"s\" is within 255 others", "s=] at 3"},
        {"a=x;" + repeat("a=${a}${a};", 21), "more than 1048576 bytes", "a=${a}${a] at 9"},
        {"#include none;", "none not found.", "[#include none] at 5"},
        {"#include empty;", "empty not found.", "[#include empty] at 5"},
        {"#include a;", "include loop: \"a\" includes itself", "[#include b] at 5"},
        {"#include na;", "too many nested includes: \"nq\" is within 16", "[#include nq] at 5"}};
    qel_debug_enable_level(QEL_LOG_DEBUG);
    for (const auto& c : cases) {
        const LogCapture log;
        EXPECT_FALSE(parse(c.text, &files)) << c.text;
        EXPECT_TRUE(log.has(": " + c.message)) << c.text << log.text();
        EXPECT_TRUE(log.has(std::string(c.at) + "\n")) << c.text << log.text();
    }
    qel_debug_disable_level(QEL_LOG_DEBUG);
    files["np"] = "deepest = 1;";
    EXPECT_TRUE(parse(repeat(repeat("s={", 255) + repeat("}", 255), 2) + "#include na;", &files));
}

TEST(ConfigRyl, IncludesInPlaceWithTheFilesOwnDirectory) {
    Texts files = {{"etc/sub/one", "p = ${pwd}; #include ${pwd}/two;\n q = ${pwd};"},
                   {"etc/sub/two", "r = ${pwd};"},
                   {"bare", "b = ${pwd};"},
                   {"/root", "c = x${pwd};"},
                   {"open", "t = { u = 1; pwd = changed;"},
                   {"unfinished", "v = 1"},
                   {"oops", "b = 2; 'oops"},
                   {"lost", "b = 2; #include nowhere"},
                   {"asks", R"(c = 1; l = [ "x\)"},
                   {"moves", "} w = 1; s = {"},
                   {"section", "pwd = { x = 1; } y = 2;"}};
    const std::pair<std::string, std::string> cases[] = {
        {"#include ${pwd}/sub/one; z = ${pwd};", "p=etc/sub q=etc/sub r=etc/sub z=etc "},
        {"s = { #include \"etc/sub/two\" ; z = ${pwd}; }", "s={r=etc/sub z=etc } "},
        {"s = { #include open; a = 1; } } b = 2;", "b=2 s={t={a=1 u=1 } } "},
        {"#include bare; #include \"/root\"; #include unfinished; a = 1;", "a=1 b=. c=x "},
        {"s = { #include moves; a = ${pwd}; }", "s={a=etc } w=1 "},
        {"s = { #include section; a = ${pwd}; }", "s={a=etc y=2 } "},
        {"#include oops; s = { a = 1; }", "b=2 s={a=1 } "},
        {"#include lost; a = 1;", "a=1 b=2 "},
        {"#include asks; a = 1; #include lost;", "a=1 b=2 c=1 l=[] "},
        {"pwd = { x = 1; } #include bare; pwd = { y = 2; } pwd = 3; a = ${pwd};", "a=3 b=. "}};
    for (const auto& [text, expected] : cases) {
        const LogCapture log;
        const Parser parser = parse(text, &files);
        EXPECT_EQ(parser ? dump(parser->root) : log.text(), expected) << text;
    }
}

TEST(ConfigRyl, ReadsFiles) {
    const LogCapture log;
    const TempFolder folder;
    const std::string path = folder.path("conf");
    const std::string read = "a=x" + path.substr(0, path.rfind('/')) + " b=2 ";
    const std::string long_file = "a = x${pwd};" + repeat(" ", 9000) + "b = 2;";
    for (const std::string& text : {std::string(), long_file}) {
        folder.write("conf", text);
        const Parser parser(qel_config_ryl_new_fn(path.c_str()));
        EXPECT_EQ(parser ? dump(parser->root) : "", text.empty() ? "" : read);
    }
    EXPECT_EQ(log.text(), "");
    EXPECT_EQ(qel_config_ryl_new_fn("/nowhere/x"), nullptr);
    EXPECT_TRUE(log.has("cannot open \"/nowhere/x\"."));

    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(folder.path());
    EXPECT_EQ(dump(Parser(qel_config_ryl_new_fn("conf"))->root), "a=x./ b=2 ");
    std::filesystem::current_path(before);

    const std::string most = "a!" + std::string((16 << 20) - 2, ' ');  // fails, but early
    const std::string one = folder.write("one", " ");
    const std::pair<std::string, std::string> sizes[] = {
        {most, "invalid char '!'"},
        {most + " ", "too large: \"" + path},
        {"#include ${pwd}/one;" + most.substr(20), "too large: \"" + one}};
    for (const auto& [text, message] : sizes) {
        EXPECT_FALSE(log.has(message)) << message;
        folder.write("conf", text);
        EXPECT_EQ(qel_config_ryl_new_fn(path.c_str()), nullptr);
        EXPECT_TRUE(log.has(message)) << message;
    }

    const std::string fifo = folder.path("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    alarm(20);  // rather than wait for a writer
    for (const std::string& odd : {fifo, std::string("/dev/zero"), std::string("/")}) {
        EXPECT_EQ(qel_config_ryl_new_fn(odd.c_str()), nullptr);
        EXPECT_TRUE(log.has("not a regular file: \"" + odd + "\"")) << odd;
        EXPECT_EQ(parse("#include \"" + odd + "\";"), nullptr) << odd;
    }
    alarm(0);
}

TEST(ConfigRyl, RemovesVariablesAndOutlivesErrors) {
    const LogCapture log;
    const Parser parser = parse("a = 1; s = { x = 1; } s2 = [ 1 ]");
    EXPECT_EQ(qel_config_ryl_remove_var(parser.get(), parser->root, "a", 1), 0);
    EXPECT_EQ(qel_config_ryl_remove_var(parser.get(), parser->root, "a", 1), -1);
    EXPECT_EQ(qel_config_ryl_remove_var(parser.get(), nullptr, "s2", 1), 0) << "names s";
    EXPECT_TRUE(log.has("cannot remove subitems or array var"));
    EXPECT_EQ(feed(parser, "s = { y = 2; }"), 0);
    EXPECT_EQ(feed(parser, "b = 1; }"), -1);
    EXPECT_EQ(dump(parser->root), "b=1 s={y=2 } s2=[1|] ") << "what precedes an error stays";
    parser->state = 18;
    EXPECT_EQ(feed(parser, "x"), -1);
    EXPECT_TRUE(log.has("unhandled char 'x' at '18'"));
}

TEST(ConfigRyl, Prints) {
    const Parser parser = parse("s = { t = { l = [ 1, \"2 3\" ] } }");
    qel_config_ryl_remove_var(parser.get(), nullptr, "pwd", 3);
    testing::internal::CaptureStdout();
    qel_config_ryl_print(parser.get());
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "s = {\n\tt = {\n\t\tl = [1, 2 3];\n\t};\n};\n");
}

}  // namespace
