#pragma once

// Clang's thread-safety attributes, under the names this project uses. With any other compiler
// they are empty.
#if defined(__clang__)
#define ORVEL_ATTR(x) __attribute__((x))
#else
#define ORVEL_ATTR(x)
#endif

#define ORVEL_CAPABILITY(name) ORVEL_ATTR(capability(name))
#define OWNED_BY(queue) ORVEL_ATTR(guarded_by(queue))
#define RUNS_ON(queue) ORVEL_ATTR(requires_capability(queue))
