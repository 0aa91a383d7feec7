// Joins raw deflate streams, so that two threads can each make a part of one entry.
//
// A deflate stream is a row of blocks whose last one is marked, and it may end within a byte. To
// go on behind it, the mark is taken away and an empty stored block fills up the byte.
#pragma once

#include <cstddef>

namespace trevix::zip_engine {

// What OpenStream() may add.
inline constexpr std::size_t kJoinBytes = 5;

// Turns the finished stream of `count` bytes into one that another stream continues, in place.
// Its new length, at most kJoinBytes more; 0 when the bytes are no deflate stream. Throws
// std::bad_alloc.
std::size_t OpenStream(char* stream, std::size_t count);

}  // namespace trevix::zip_engine
