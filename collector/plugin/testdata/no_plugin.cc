// A library, but no plug-in.
extern "C" __attribute__((visibility("default"))) int some_other_function();
int some_other_function() { return 5; }
