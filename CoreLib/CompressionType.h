// CompressionType.h: how the bytes of a file are stored, for the file reader and writer.
#pragma once

namespace zn {

enum TCompressionType {
    CompressionType_None = 0,  // the bytes as they are
    CompressionType_Zlib = 1,  // the whole file is one zlib stream
};

}  // namespace zn
