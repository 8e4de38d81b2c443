#pragma once

#include <memory>
#include <type_traits>
#include <utility>

namespace orvel {

template <class Signature>
class UniqueFunction;

// std::function for callables that can only be moved, such as a lambda that owns a frame's buffer.
// Calling an empty one is a programming error.
template <class Result, class... Arguments>
class UniqueFunction<Result(Arguments...)> {
public:
    UniqueFunction() = default;
    UniqueFunction(std::nullptr_t) {}

    template <class Callable,
              class = std::enable_if_t<
                  !std::is_same_v<std::decay_t<Callable>, UniqueFunction> &&
                  std::is_invocable_r_v<Result, std::decay_t<Callable>&, Arguments...>>>
    UniqueFunction(Callable&& callable)
        : body(std::make_unique<Holder<std::decay_t<Callable>>>(std::forward<Callable>(callable))) {
    }

    explicit operator bool() const { return body != nullptr; }
    Result operator()(Arguments... arguments) const {
        return body->call(std::forward<Arguments>(arguments)...);
    }

private:
    struct Body {
        virtual ~Body() = default;
        virtual Result call(Arguments... arguments) = 0;
    };
    template <class Callable>
    struct Holder final : Body {
        explicit Holder(Callable held) : callable(std::move(held)) {}
        Result call(Arguments... arguments) override {
            return callable(std::forward<Arguments>(arguments)...);
        }
        Callable callable;
    };

    std::unique_ptr<Body> body;
};

}  // namespace orvel
