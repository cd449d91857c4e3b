#include "utility/sharedpointer.h"

#include "utility/lhvexception.h"

namespace Detail {

void ThrowNullArrow() {
    throw CLhvException("cannot access class members: NULL pointer in T* operator-> () const");
}

void ThrowNullConstArrow() {
    throw CLhvException("cannot access class members: NULL pointer const T* operator-> () const");
}

void ThrowNullDereference() {
    throw CLhvException("cannot derefence: NULL pointer in const T& CSharedPointer::operator * () const");
}

}  // namespace Detail
