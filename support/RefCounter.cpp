#include <dtm/support/RefCounter.h>

namespace kor {

// Out of line so that the class has one home for its type information across the library.
IRefCounter::~IRefCounter() = default;

}  // namespace kor
