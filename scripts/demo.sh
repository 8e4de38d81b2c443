demo() { fail "not yet"; }
