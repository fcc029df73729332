// Takes the place of the browser: writes the address that it was started with to the file that
// VELMORA_CONTRACT_RECORD names.
#include <cstdio>
#include <cstdlib>
#include <string>

int main(int argument_count, char** arguments) {
  const char* record = std::getenv("VELMORA_CONTRACT_RECORD");
  if (record == nullptr || argument_count != 2) return 2;
  // The file appears complete or not at all.
  const std::string unfinished = std::string(record) + ".part";
  std::FILE* file = std::fopen(unfinished.c_str(), "wb");
  if (file == nullptr) return 1;
  std::fprintf(file, "%s\n", arguments[1]);
  std::fclose(file);
  return std::rename(unfinished.c_str(), record) == 0 ? 0 : 1;
}
