#include "util/Types.h"

void AfxThrowInvalidArgException() {
    throw CInvalidArgException();
}
