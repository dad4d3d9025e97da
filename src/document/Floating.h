#pragma once

namespace vorel::detail {

// A finite number as the shortest text that reads back the same; where several are as short, the
// nearest. There is no exponent from 1e-4 up to below 1e16. Takes up to kFloatingRoom bytes,
// scratch behind the end included, which is returned.
char* putShortest(char* out, double value);
char* putShortest(char* out, float value);

}  // namespace vorel::detail
