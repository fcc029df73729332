// An algorithm library from before the version function: it loads, and has another function only.
extern "C" int fse_self_check();

extern "C" int fse_self_check() { return 0; }
