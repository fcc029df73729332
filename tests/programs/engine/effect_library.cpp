// The effect as a library that can be loaded, and nothing more.
extern "C" int velmora_test_effect_library();

extern "C" int velmora_test_effect_library() { return 0; }
