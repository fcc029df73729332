// The library that the machine's contract loads. Every function with external linkage is exported: it is so
// by default for a shared object, and for a DLL that marks none.
extern "C" int velmora_contract_answer();

int velmora_contract_answer() { return 42; }
