// SeekPos.h: where a seek counts from, in the values the C library's fseek takes.
#pragma once

namespace zn {

enum ESeekPos {
    SEEKPOS_START = 0,    // from the beginning
    SEEKPOS_CURRENT = 1,  // from the present position
    SEEKPOS_END = 2,      // from the end of what is there
};

}  // namespace zn
