#include "lib/callback_argument.h"

int callback_objects = 0;

namespace {

template <typename signature>
void (*generic(signature* function))() {
    return reinterpret_cast<void (*)()>(function);
}

}  // namespace

callback_argument::callback_argument(kind_of_call what, generic_function how, str const& a, str const& b,
                                     str const& c, int number)
    : kind(what), function(how), s1(a), s2(b), s3(c), n(number) {
    callback_objects++;
}

callback_argument::callback_argument()
    : callback_argument(kind_of_call::none, nullptr, str(), str(), str(), 0) {}

callback_argument::callback_argument(void (*f)())
    : callback_argument(kind_of_call::plain, f, str(), str(), str(), 0) {}

callback_argument::callback_argument(void (*f)(str const&), str const& a)
    : callback_argument(kind_of_call::text, generic(f), a, str(), str(), 0) {}

callback_argument::callback_argument(void (*f)(int), int number)
    : callback_argument(kind_of_call::number, generic(f), str(), str(), str(), number) {}

callback_argument::callback_argument(void (*f)(str const&, str const&), str const& a, str const& b)
    : callback_argument(kind_of_call::two_texts, generic(f), a, b, str(), 0) {}

callback_argument::callback_argument(void (*f)(str const&, int), str const& a, int number)
    : callback_argument(kind_of_call::text_and_number, generic(f), a, str(), str(), number) {}

callback_argument::callback_argument(void (*f)(str const&, str const&, str const&), str const& a,
                                     str const& b, str const& c)
    : callback_argument(kind_of_call::three_texts, generic(f), a, b, c, 0) {}

callback_argument::callback_argument(callback_argument const& other)
    : callback_argument(other.kind, other.function, other.s1, other.s2, other.s3, other.n) {}

callback_argument::~callback_argument() {
    callback_objects--;
}

callback_argument& callback_argument::operator=(callback_argument const& other) {
    if (this == &other)
        return *this;
    kind = other.kind;
    function = other.function;
    s1 = other.s1;
    s2 = other.s2;
    s3 = other.s3;
    n = other.n;
    return *this;
}

void callback_argument::call() const {
    switch (kind) {
        case kind_of_call::none: break;
        case kind_of_call::plain: function(); break;
        case kind_of_call::text: reinterpret_cast<void (*)(str const&)>(function)(s1); break;
        case kind_of_call::number: reinterpret_cast<void (*)(int)>(function)(n); break;
        case kind_of_call::two_texts:
            reinterpret_cast<void (*)(str const&, str const&)>(function)(s1, s2);
            break;
        case kind_of_call::text_and_number:
            reinterpret_cast<void (*)(str const&, int)>(function)(s1, n);
            break;
        case kind_of_call::three_texts:
            reinterpret_cast<void (*)(str const&, str const&, str const&)>(function)(s1, s2, s3);
            break;
    }
}
