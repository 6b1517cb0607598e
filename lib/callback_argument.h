#pragma once

#include "lib/str.h"

/// A stored action: a plain function and the arguments it is called with, up to three strings or one integer.
/// The strings share their buffers with the caller's, so binding copies nothing. The called function returns
/// nothing to anybody.
class callback_argument {
public:
    callback_argument();
    explicit callback_argument(void (*function)());
    callback_argument(void (*function)(str const&), str const& a);
    callback_argument(void (*function)(int), int n);
    callback_argument(void (*function)(str const&, str const&), str const& a, str const& b);
    callback_argument(void (*function)(str const&, int), str const& a, int n);
    callback_argument(void (*function)(str const&, str const&, str const&), str const& a, str const& b,
                      str const& c);
    callback_argument(callback_argument const& other);
    ~callback_argument();
    callback_argument& operator=(callback_argument const& other);

    /// Runs the action; an empty one does nothing.
    void call() const;

private:
    enum class kind_of_call { none, plain, text, number, two_texts, text_and_number, three_texts };

    using generic_function = void (*)();

    callback_argument(kind_of_call what, generic_function how, str const& a, str const& b, str const& c,
                      int n);

    kind_of_call kind;
    generic_function function;
    str s1;
    str s2;
    str s3;
    int n;
};

/// Live callback_argument objects: a leak indicator.
extern int callback_objects;
