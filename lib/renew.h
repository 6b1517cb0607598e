#pragma once

#include <new>

/// Gives an object the value of a new one, in its place; costs less code than the assignment of one.
template <typename type>
void renew(type& object) {
    object.~type();
    new (&object) type();
}
