#include "lib/str.h"

namespace {

/// A block outside the pool, as large as one of its smallest class, so that a constant needs no code at start-up
/// and is usable in every other file's start-up code.
struct constant_block {
    str::reference head;
    unsigned char bytes[16];
};

template <int n>
constexpr constant_block block_of(char const (&text)[n]) {
    constant_block block{{{nullptr}, sizeof(block.bytes), 0}, {}};
    for (int i = 0; i < n - 1; ++i)
        block.bytes[i] = static_cast<unsigned char>(text[i]);
    return block;
}

constinit constant_block lws_block = block_of(" \t\r\n");
constinit constant_block crlf_block = block_of("\r\n");
constinit constant_block space_block = block_of(" ");
constinit constant_block newline_block = block_of("\n");
constinit constant_block true_block = block_of("true");
constinit constant_block false_block = block_of("false");
constinit constant_block x_00_block = block_of("\x00");
constinit constant_block x_01_block = block_of("\x01");
constinit constant_block x_FF_block = block_of("\xFF");
constinit constant_block file_block = block_of("file");
constinit constant_block dir_block = block_of("dir");
constinit constant_block backslash_block = block_of("\\");
constinit constant_block slash_block = block_of("/");
constinit constant_block dot_block = block_of(".");
constinit constant_block dot_dot_block = block_of("..");

}  // namespace

constinit str str::null;
constinit str str::lws(lws_block.head, 4);
constinit str str::crlf(crlf_block.head, 2);
constinit str str::space(space_block.head, 1);
constinit str str::newline(newline_block.head, 1);
constinit str str::t(true_block.head, 4);
constinit str str::f(false_block.head, 5);
constinit str str::x_00(x_00_block.head, 1);
constinit str str::x_01(x_01_block.head, 1);
constinit str str::x_FF(x_FF_block.head, 1);
constinit str str::c_file(file_block.head, 4);
constinit str str::c_dir(dir_block.head, 3);
constinit str str::backslash(backslash_block.head, 1);
constinit str str::slash(slash_block.head, 1);
constinit str str::dot(dot_block.head, 1);
constinit str str::dot_dot(dot_dot_block.head, 2);
