// Files as sources of bytes, the readers on top, and whole files in memory.
#include "qel/core/source/qel_source.h"

#include <gtest/gtest.h>

#include "qel/core/qel_io.h"
#include "qel/core/source/qel_source_file.h"
#include "tests/support/failing_alloc.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/temp_path.hpp"

namespace {

/// A file with this content, for its lifetime, and a source of it.
struct Input : qel_source {
    explicit Input(const std::string& content) : path(folder.write("input", content)) {
        EXPECT_EQ(qel_source_file_init(this, path.c_str()), 0);
    }
    ~Input() { qel_source_file_clean(this); }
    // What is left, at most `n` bytes.
    std::string rest(size_t n = SIZE_MAX) {
        std::string text;
        for (int32_t c; text.size() < n && (c = get(data)) != -1;) text += static_cast<char>(c);
        return text;
    }
    const TempFolder folder;
    const std::string path;
};

// Each reader as a text: its result, a blank, what it read.

using Reader = std::string (*)(Input& input);

int32_t end;

template <auto read, auto... args>  // into a string, with more arguments for the reader
std::string text(Input& input) {
    qel_string s = {};
    end = 0;
    std::string result = std::to_string(read(&input, &s, args...)) + " ";
    result.append(s.data ? s.data : "", s.length);
    qel_string_clean(&s);
    return end ? result + " end" : result;
}

template <class T, auto read, uint32_t flags = QEL_SOURCE_BYTE_ORDER, auto... args>
std::string number(Input& input) {
    T value = 99;
    input.flags = flags;
    const int32_t result = read(&input, &value, args...);
    return std::to_string(result) + " " + testing::PrintToString(value);
}

int32_t read_4_chars(qel_source* source, int32_t* count) {
    char buffer[4];
    return qel_source_read_char(source, buffer, &(*count = 4));
}

constexpr Reader token = text<qel_source_read_string, nullptr>;
constexpr Reader line = text<qel_source_read_line, &end>;
constexpr Reader utf8 = text<qel_source_read_utf8_char>;
constexpr Reader count = number<uint32_t, qel_source_count_lines>;
constexpr Reader integer = number<int32_t, qel_source_atoi>;
constexpr Reader real = number<double, qel_source_atof>;
constexpr Reader chars4 = number<int32_t, read_4_chars>;

/// `n` bytes, each its position modulo 251.
std::string ramp(size_t n) {
    std::string bytes(n, '\0');
    for (size_t i = 0; i < n; ++i) bytes[i] = static_cast<char>(i % 251);
    return bytes;
}

TEST(Source, ReadsTextAndBinaries) {
    const struct {
        Reader read;
        std::string input, expected, rest;
    } cases[] = {// clang-format off
        // A blank ends a quoted token too; octal escapes count modulo 256.
        {token, " \t\n\v\f\r", "-1 ", ""},          {token, "  ab \n", "0 ab", " \n"},
        {token, "'a\"b'c", "0 a\"b", "c"},          {token, "'ab cd'", "0 ab", " cd'"},
        {token, "\"\"x", "0 ", "x"},                {token, "a'b", "0 a'b", ""},
        {token, R"(\ \'\\)", R"(0  '\)", ""},       {token, R"(\101\501x)", "0 AAx", ""},
        {token, R"(a\18b)", "0 a", "b"},            {token, "\xff\x80", "0 \xff\x80", ""},
        {line, "one\ntwo", "0 one", "two"},         {line, "one", "0 one end", ""},
        {line, "one\xfftwo", "0 one end", "two"},   {utf8, "\xc3\xa4\xe2", "0 \xc3\xa4", "\xe2"},
        {count, "\na\n\nb\n", "0 2", ""},           {count, "a\n\xff\nb", "0 1", "\nb"},
        // The blank is pushed back twice; an end pushed back reads as byte 0xFF.
        {integer, " -7 8", "0 -7", "  8"},          {integer, "+", "0 0", "\xff"},
        {integer, "12x", "0 12", "x"},              {integer, ".5", "-1 99", ".5"},
        {real, "1.5 2", "0 1.5", " 2"},             {real, "-.25e1x;y ", "0 -2.5", " "},
        {real, "/1", "-1 99", "/1"},                {real, ",1", "-1 99", ",1"},
        // At the end one more than was read is reported.
        {chars4, "abcdef", "0 4", "ef"},            {chars4, "ab", "0 3", ""},
                 // clang-format on
                 {number<int32_t, qel_source_read_int, 1, 1u, 1>, "\1\2\3\4", "0 16909060", ""},
                 {number<int32_t, qel_source_read_int, 0, 1u, 1>, "\4\3\2\1", "0 16909060", ""},
                 {number<int16_t, qel_source_read_short, 1, 1u, 1>, "\2\1x", "0 258", "x"},
                 {number<int16_t, qel_source_read_short, 0, 1u, 1>, "\1\2", "0 258", ""},
                 {number<float, qel_source_read_float, 1, 1u, 1>, "\1\1\x80\x3f", "0 1.00003", ""},
                 {number<double, qel_source_read_double, 0, 1u, 1>, "@\1xxxxxx", "0 2.18382", ""}};
    for (const auto& c : cases) {
        Input input(c.input);
        EXPECT_EQ(c.read(input), c.expected) << c.input;
        EXPECT_EQ(input.rest(), c.rest) << c.input;
    }
}

TEST(SourceFile, DeliversEveryByteAroundTheBufferSize) {
    for (const uint32_t size : {1, 3, 4, 5, 4095, 4096, 4097, 8192, 10000}) {
        const std::string content = ramp(size);
        Input single(content), bulk(content);
        EXPECT_EQ(single.rest(), content);
        uint64_t length = 0;
        char* bytes = qel_io_read_all(single.path.c_str(), &length);
        EXPECT_EQ(std::string(bytes, length + 1), content + '\0');
        free(bytes);
        std::string read(size + 5, 'x');
        uint32_t n = size / 3, left = size + 5 - n;
        EXPECT_EQ(qel_source_fill(&bulk, read.data(), &n), 0);
        EXPECT_EQ(qel_source_fill(&bulk, &read[n], &left), -1);
        EXPECT_EQ(n + left, size);
        EXPECT_EQ(read, content + "xxxxx");
    }
}

TEST(SourceFile, PushesBackAndSeeks) {
    Input input(ramp(4096 * 3));
    input.unget(input.data, 0x1ff);
    EXPECT_EQ(input.rest(4097), "\xff" + ramp(4096));
    EXPECT_EQ(qel_source_peek(&input), 4096 % 251);
    input.unget(input.data, 'y');
    input.unget(input.data, 'x');  // below the start of a refilled buffer, whose rest is dropped
    EXPECT_EQ(input.rest(2), std::string("x") + static_cast<char>((8192 - 1) % 251));
}

TEST(SourceFile, SeeksTo64BitOffsetsOrNowhere) {
    Input input("0123456789");
    const auto sought = [&input](int64_t offset) {
        const int32_t result = qel_source_file_seek(&input, offset);
        return std::to_string(result) + " " + input.rest() + "|";
    };
    constexpr int64_t far = (1LL << 32) + 5;
    EXPECT_EQ(sought(7) + sought(-1) + sought(5), "0 789|-1 |0 56789|");
    EXPECT_EQ(sought(far) + sought(INT64_MIN + 5), "0 |-1 |");
    std::filesystem::resize_file(input.path, far);  // takes no room: all but 10 bytes is a hole
    std::ofstream(input.path, std::ios::app) << "far";
    EXPECT_EQ(sought(far), "0 far|");

    FILE* pipe = popen("printf ab", "r");
    qel_source source;
    ASSERT_EQ(qel_source_file_init(&source, ("/dev/fd/" + std::to_string(fileno(pipe))).c_str()),
              0);
    EXPECT_EQ(qel_source_file_seek(&source, 1), -1);
    EXPECT_EQ(source.get(source.data), 'a');
    qel_source_file_clean(&source);
    EXPECT_EQ(qel_source_file_seek(&source, 0), -1) << "without a file";
    pclose(pipe);
}

TEST(SourceFile, LoadsThroughALoaderAndNamesWhatFails) {
    const LogCapture log;
    const Input file("-2 70000");
    const qel_source_loader loader = {nullptr, qel_source_file_load};
    const auto read = [](void* user, qel_source* source) {
        return qel_source_read_short(source, static_cast<int16_t*>(user), 2, 0);
    };
    int16_t values[2] = {};
    for (int64_t allowed = 0; allowed <= 4; ++allowed) {
        const FailingAlloc fail(allowed);
        EXPECT_EQ(qel_source_loader_load(&loader, values, read, file.path.c_str()),
                  allowed / 4 - 1);
    }
    EXPECT_EQ(values[1], 70000 - 65536);
    EXPECT_TRUE(log.has("[W] qel_source_file:_source_file_item_new:"));
    EXPECT_TRUE(log.has("load \"" + file.path + "\" failed."));
}

TEST(SourceFile, ErrorsEndTheInput) {
    const LogCapture log;
    for (const char* path : {"/", "/proc/self/mem"}) {
        qel_source source;
        ASSERT_EQ(qel_source_file_init(&source, path), 0) << path;
        char bytes[5];
        uint32_t n = 5;
        EXPECT_EQ(qel_source_fill(&source, bytes, &n), -1) << path;
        EXPECT_EQ(n, 0u) << path;
        qel_source_file_clean(&source);
        EXPECT_EQ(qel_io_read_all(path, nullptr), nullptr) << path;
    }
    EXPECT_EQ(qel_io_read_all(Input("").path.c_str(), nullptr), nullptr);
    EXPECT_EQ(qel_io_read_all("/nowhere/x", nullptr), nullptr);
    EXPECT_TRUE(log.has("failed to open file: /nowhere/x"));
}

}  // namespace
