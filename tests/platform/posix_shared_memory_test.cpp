// The mapping's object under /dev/shm, and who removes it, whichever process is killed when. One file because
// the kills, the halts and the race share their helpers.
#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>
#include <new>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "base/text.h"
#include "platform/clock.h"
#include "platform/posix_child.h"
#include "platform/shared_memory.h"

namespace velmora {
namespace {

constexpr std::size_t size_bytes = 576;
constexpr unsigned char written_byte = 0xA5;
constexpr std::uint32_t error_missing = 2;
constexpr std::uint32_t error_denied = 5;
constexpr std::uint32_t error_busy = 170;

// The names of a mapping and its object, used by this test process only. The object is removed with it.
class Name {
 public:
  explicit Name(const char* scope = "Local")
      : tail_("velmora-posix-test-" + std::to_string(getpid())),
        wide_(wide_from_signed_bytes(std::string(scope) + '\\' + tail_)),
        object_(std::string("/") + scope + '.' + tail_) {}
  ~Name() { shm_unlink(object()); }
  Name(const Name&) = delete;
  Name& operator=(const Name&) = delete;

  const std::u16string& wide() const { return wide_; }
  const char* object() const { return object_.c_str(); }
  std::string path() const { return "/dev/shm" + object_; }

 private:
  std::string tail_;
  std::u16string wide_;
  std::string object_;
};

std::optional<struct stat> state_of(const Name& name) {
  struct stat state {};
  if (stat(name.path().c_str(), &state) != 0) return std::nullopt;
  return state;
}

bool exists(const Name& name) { return state_of(name).has_value(); }

// What a killed process leaves behind: an object with contents that nobody holds.
void make_stale(const Name& name) {
  const int descriptor = shm_open(name.object(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  ASSERT_GE(descriptor, 0);
  const std::string contents(size_bytes, static_cast<char>(written_byte));
  EXPECT_EQ(write(descriptor, contents.data(), contents.size()), static_cast<ssize_t>(contents.size()));
  close(descriptor);
}

bool all_bytes_are(const SharedView& view, unsigned char byte) {
  const auto* bytes = static_cast<const unsigned char*>(view.native().data);
  for (std::size_t index = 0; index < view.native().size; ++index) {
    if (bytes[index] != byte) return false;
  }
  return true;
}

struct Holder {
  SharedMapping mapping;
  SharedView view;  // closed before the mapping
};

// A new object of zeros, held.
void create_fresh(const Name& name, Holder& out) {
  const CreatedMapping created = create_shared_mapping(name.wide(), size_bytes, out.mapping);
  ASSERT_EQ(created.descriptor_error, std::nullopt);
  ASSERT_EQ(created.create_error, std::nullopt);
  EXPECT_FALSE(created.already_existed);
  ASSERT_EQ(map_shared_view(out.mapping, size_bytes, out.view), std::nullopt);
  EXPECT_TRUE(all_bytes_are(out.view, 0));
  ASSERT_TRUE(exists(name));
  EXPECT_EQ(state_of(name)->st_size, static_cast<off_t>(size_bytes));
}

void expect_fresh_and_gone_after_close(const Name& name) {
  {
    Holder holder;
    ASSERT_NO_FATAL_FAILURE(create_fresh(name, holder));
  }
  EXPECT_FALSE(exists(name));
}

TEST(PosixSharedMemory, MakesAnObjectNamedLikeTheMappingWithADotForTheBackslash) {
  for (const char* scope : {"Local", "Global"}) {
    SCOPED_TRACE(scope);
    const Name name(scope);
    ASSERT_FALSE(exists(name));
    expect_fresh_and_gone_after_close(name);
  }
}

TEST(PosixSharedMemory, OpeningAMissingNameMakesNothing) {
  const Name local("Local");
  const Name global("Global");
  Holder holder;
  ASSERT_NO_FATAL_FAILURE(create_fresh(local, holder));
  SharedMapping other;
  EXPECT_EQ(open_shared_mapping(global.wide(), other), error_missing);
  EXPECT_FALSE(other.is_open());
  EXPECT_FALSE(exists(global));
}

TEST(PosixSharedMemory, TheObjectIsReadableAndWritableByAllWhateverTheFileModeMask) {
  const Name name;
  const mode_t before = umask(0077);
  Holder holder;
  create_fresh(name, holder);
  umask(before);
  ASSERT_TRUE(exists(name));
  EXPECT_EQ(state_of(name)->st_mode & 0777u, 0666u);
}

TEST(PosixSharedMemory, NoDescriptorOfTheObjectPassesToAProgramThatWeStart) {
  const Name name;
  Holder holder;
  ASSERT_NO_FATAL_FAILURE(create_fresh(name, holder));
  int found = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code failure;
    if (std::filesystem::read_symlink(entry.path(), failure) != name.path()) continue;
    ++found;
    EXPECT_EQ(fcntl(std::stoi(entry.path().filename()), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
  }
  EXPECT_EQ(found, 1);
}

TEST(PosixSharedMemory, TheLastHolderRemovesTheObjectAndNoEarlierOne) {
  const Name name;
  Holder first;
  ASSERT_NO_FATAL_FAILURE(create_fresh(name, first));
  Holder second;
  const CreatedMapping again = create_shared_mapping(name.wide(), size_bytes, second.mapping);
  ASSERT_EQ(again.create_error, std::nullopt);
  EXPECT_TRUE(again.already_existed);
  ASSERT_EQ(map_shared_view(second.mapping, size_bytes, second.view), std::nullopt);
  std::memset(first.view.native().data, written_byte, size_bytes);

  first = {};
  EXPECT_TRUE(exists(name));
  EXPECT_TRUE(all_bytes_are(second.view, written_byte));
  Holder third;
  ASSERT_EQ(open_shared_mapping(name.wide(), third.mapping), std::nullopt);
  ASSERT_EQ(map_shared_view(third.mapping, size_bytes, third.view), std::nullopt);
  EXPECT_TRUE(all_bytes_are(third.view, written_byte));

  second = {};
  EXPECT_TRUE(exists(name));
  third = {};
  EXPECT_FALSE(exists(name));
}

void open_finds_nothing_and_removes_it(const Name& name) {
  SharedMapping mapping;
  EXPECT_EQ(open_shared_mapping(name.wide(), mapping), error_missing);
  EXPECT_FALSE(mapping.is_open());
  EXPECT_FALSE(exists(name));
}

TEST(PosixSharedMemory, AnObjectThatNobodyHoldsIsRemovedByOpenAndMadeAnewByCreate) {
  const Name name;
  ASSERT_NO_FATAL_FAILURE(make_stale(name));
  open_finds_nothing_and_removes_it(name);
  ASSERT_NO_FATAL_FAILURE(make_stale(name));
  expect_fresh_and_gone_after_close(name);
}

TEST(PosixSharedMemory, ASmallerObjectAnswersTheViewWithError5) {
  const Name name;
  SharedMapping mapping;
  ASSERT_EQ(create_shared_mapping(name.wide(), size_bytes - 1, mapping).create_error, std::nullopt);
  SharedView view;
  EXPECT_EQ(map_shared_view(mapping, size_bytes, view), error_denied);
  EXPECT_FALSE(view.is_open());
  EXPECT_EQ(map_shared_view(mapping, size_bytes - 1, view), std::nullopt);
}

TEST(PosixSharedMemory, AHeldObjectWithoutAccessForUsIsError5AndStays) {
  const Name name;
  const int held = shm_open(name.object(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  ASSERT_GE(held, 0);
  EXPECT_EQ(ftruncate(held, size_bytes), 0);
  EXPECT_EQ(flock(held, LOCK_SH), 0);
  EXPECT_EQ(fchmod(held, 0), 0);
  SharedMapping mapping;
  EXPECT_EQ(answer_of_nobody([&] { return open_shared_mapping(name.wide(), mapping).value_or(0); }),
            static_cast<int>(error_denied));
  EXPECT_EQ(answer_of_nobody([&] {
              return create_shared_mapping(name.wide(), size_bytes, mapping).create_error.value_or(0);
            }),
            static_cast<int>(error_denied));
  EXPECT_TRUE(exists(name));
  close(held);
}

// A child that has done `act` and then does nothing until it is killed. Returns once `act` is done.
pid_t start_paused(const std::function<bool()>& act) {
  std::array<int, 2> ready{};
  EXPECT_EQ(pipe(ready.data()), 0);
  const pid_t child = fork_child([&]() -> int {
    if (!act() || write(ready[1], "", 1) != 1) return 1;
    for (;;) pause();
  });
  close(ready[1]);
  char byte = 0;
  EXPECT_EQ(read(ready[0], &byte, 1), 1);
  close(ready[0]);
  return child;
}

bool kill_child(pid_t child) {
  int status = 0;
  return kill(child, SIGKILL) == 0 && waitpid(child, &status, 0) == child && WIFSIGNALED(status);
}

TEST(PosixSharedMemory, AnObjectLockedByAHaltedMakerIsError170AndStays) {
  const Name name;
  ASSERT_NO_FATAL_FAILURE(make_stale(name));
  // As a process that is halted while it makes or removes the object.
  const pid_t child = start_paused([&name] {
    const int descriptor = shm_open(name.object(), O_RDWR | O_CLOEXEC, 0);
    return descriptor >= 0 && flock(descriptor, LOCK_EX | LOCK_NB) == 0;
  });
  SharedMapping mapping;
  EXPECT_EQ(open_shared_mapping(name.wide(), mapping), error_busy);
  EXPECT_FALSE(mapping.is_open());
  const CreatedMapping created = create_shared_mapping(name.wide(), size_bytes, mapping);
  EXPECT_EQ(created.descriptor_error, std::nullopt);
  EXPECT_EQ(created.create_error, error_busy);
  EXPECT_FALSE(mapping.is_open());
  ASSERT_TRUE(exists(name));
  EXPECT_EQ(state_of(name)->st_size, static_cast<off_t>(size_bytes));

  EXPECT_TRUE(kill_child(child));
  expect_fresh_and_gone_after_close(name);
}

// ---- Killed or halted at every step ----

enum class Ending { halted, finished, failed };

struct Halted {
  Ending ending;
  pid_t child;    // halted: to be killed or released
  int exit_code;  // finished: what it returned
};

// Runs `body` in a child that stops before and after each of its system calls, and leaves it halted at its
// stop number `stop` (from 1). `finished`: it had fewer stops.
Halted halt_at_stop(int stop, const std::function<int()>& body) {
  const pid_t child = fork_child([&] {
    // What the parent holds would be held by the child too, through the descriptors that it inherits.
    if (close_range(3, ~0u, 0) != 0) return 254;
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0 || raise(SIGSTOP) != 0) return 255;
    return body();
  });
  int status = 0;
  if (waitpid(child, &status, 0) != child || !WIFSTOPPED(status)) return {Ending::failed, 0, 0};
  for (int seen = 0; seen < stop; ++seen) {
    if (ptrace(PTRACE_SYSCALL, child, nullptr, nullptr) != 0) break;
    if (waitpid(child, &status, 0) != child) return {Ending::failed, 0, 0};
    if (WIFEXITED(status)) return {Ending::finished, 0, WEXITSTATUS(status)};
    if (!WIFSTOPPED(status) || WSTOPSIG(status) != SIGTRAP) break;
  }
  if (WIFSTOPPED(status) && WSTOPSIG(status) == SIGTRAP) return {Ending::halted, child, 0};
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  return {Ending::failed, 0, 0};
}

// Lets it run to its end; its exit code.
int release_halted(pid_t child) {
  return ptrace(PTRACE_DETACH, child, nullptr, nullptr) == 0 ? exit_code_of(child) : -1;
}

// Life of a holder, as an exit code: which step failed.
int create_write_close(const Name& name) {
  Holder holder;
  if (create_shared_mapping(name.wide(), size_bytes, holder.mapping).create_error) return 1;
  if (map_shared_view(holder.mapping, size_bytes, holder.view)) return 2;
  std::memset(holder.view.native().data, written_byte, size_bytes);
  return 0;
}

int find_nothing_to_open(const Name& name) {
  SharedMapping mapping;
  return open_shared_mapping(name.wide(), mapping) == error_missing ? 0 : 1;
}

int open_write_close(const Name& name) {
  Holder holder;
  if (open_shared_mapping(name.wide(), holder.mapping)) return 1;
  if (map_shared_view(holder.mapping, size_bytes, holder.view)) return 2;
  static_cast<unsigned char*>(holder.view.native().data)[0] = written_byte;
  return 0;
}

// What the kills of one test left, so that it can show that it met the cases which matter.
struct Left {
  int killed = 0;
  int nothing = 0;
  int unsized = 0;
  int sized = 0;
};

void count_what_is_left(const Name& name, Left& left) {
  ++left.killed;
  const auto state = state_of(name);
  ++(!state ? left.nothing : state->st_size == 0 ? left.unsized : left.sized);
}

constexpr int more_stops_than_any_life = 5000;

// Kills `life` at each of its stops, every time from the state that `prepare` makes, and then runs `recover`.
void kill_at_every_stop(const Name& name, const std::function<void()>& prepare,
                        const std::function<int()>& life, const std::function<void()>& recover, Left& left) {
  for (int stop = 1; stop < more_stops_than_any_life; ++stop) {
    SCOPED_TRACE("system call stop " + std::to_string(stop));
    ASSERT_NO_FATAL_FAILURE(prepare());
    const Halted halted = halt_at_stop(stop, life);
    ASSERT_NE(halted.ending, Ending::failed);
    ASSERT_EQ(halted.exit_code, 0);
    if (halted.ending == Ending::halted) {
      ASSERT_TRUE(kill_child(halted.child));
      count_what_is_left(name, left);
    }
    ASSERT_NO_FATAL_FAILURE(recover());
    ASSERT_FALSE(testing::Test::HasFailure());
    if (halted.ending == Ending::finished) return;
  }
  FAIL() << "the child never ended";
}

TEST(PosixSharedMemory, ACreatorKilledAtAnyStepLeavesANameThatOpenFindsMissingAndCreateMakesAnew) {
  for (const bool opens_first : {false, true}) {
    SCOPED_TRACE(opens_first);
    const Name name;
    Left left;
    kill_at_every_stop(
        name, [] {}, [&] { return create_write_close(name); },
        [&] {
          if (opens_first) open_finds_nothing_and_removes_it(name);
          expect_fresh_and_gone_after_close(name);
        },
        left);
    EXPECT_GT(left.nothing, 0);
    EXPECT_GT(left.unsized, 0);
    EXPECT_GT(left.sized, 0);
  }
}

TEST(PosixSharedMemory, WhoeverIsKilledAtAnyStepOfRemovingAStaleObjectLeavesANameThatIsMadeAnew) {
  const struct {
    const char* title;
    int (*life)(const Name&);
  } lives[] = {{"open", find_nothing_to_open}, {"create", create_write_close}};
  for (const auto& row : lives) {
    SCOPED_TRACE(row.title);
    const Name name;
    Left left;
    kill_at_every_stop(
        name, [&] { make_stale(name); }, [&] { return row.life(name); },
        [&] { expect_fresh_and_gone_after_close(name); }, left);
    EXPECT_GT(left.nothing, 0);
    EXPECT_GT(left.sized, 0);
  }
}

TEST(PosixSharedMemory, ASecondHolderKilledAtAnyStepTakesNothingFromTheFirst) {
  const Name name;
  Holder first;
  Left left;
  kill_at_every_stop(
      name, [&] { create_fresh(name, first); }, [&] { return open_write_close(name); },
      [&] {
        auto* bytes = static_cast<unsigned char*>(first.view.native().data);
        EXPECT_TRUE(bytes[0] == 0 || bytes[0] == written_byte);
        bytes[0] = 0;
        EXPECT_TRUE(all_bytes_are(first.view, 0));
        Holder third;
        EXPECT_EQ(open_shared_mapping(name.wide(), third.mapping), std::nullopt);
        third = {};
        EXPECT_TRUE(exists(name));
        first = {};
        EXPECT_FALSE(exists(name));
      },
      left);
  EXPECT_GT(left.killed, 10);
  EXPECT_EQ(left.sized, left.killed);
}

TEST(PosixSharedMemory, WhatAFirstHolderWroteOutlivesItsKillWhileASecondHoldsOn) {
  const Name name;
  Holder holder;  // the child's
  const pid_t child = start_paused([&] {
    if (create_shared_mapping(name.wide(), size_bytes, holder.mapping).create_error) return false;
    if (map_shared_view(holder.mapping, size_bytes, holder.view)) return false;
    std::memset(holder.view.native().data, written_byte, size_bytes);
    return true;
  });
  Holder second;
  EXPECT_EQ(open_shared_mapping(name.wide(), second.mapping), std::nullopt);
  EXPECT_TRUE(kill_child(child));
  ASSERT_EQ(map_shared_view(second.mapping, size_bytes, second.view), std::nullopt);
  EXPECT_TRUE(all_bytes_are(second.view, written_byte));
  second = {};
  EXPECT_FALSE(exists(name));
}

// ---- Two at once, in every order ----

constexpr int exit_wrote = 0;
constexpr int exit_missing = 10;

// A value on a page that children share with their parent.
template <typename Value>
class Shared {
 public:
  Shared()
      : page_(mmap(nullptr, sizeof(Value), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)),
        value_(new (page_) Value{}) {}
  ~Shared() { munmap(page_, sizeof(Value)); }
  Shared(const Shared&) = delete;
  Shared& operator=(const Shared&) = delete;
  Value& operator*() const { return *value_; }

 private:
  void* page_;
  Value* value_;
};

enum class Act { create, open };

int hold_and_write(const Name& name, Act act, std::atomic<bool>& about_to_write) {
  Holder holder;
  const std::optional<std::uint32_t> error =
      act == Act::create ? create_shared_mapping(name.wide(), size_bytes, holder.mapping).create_error
                         : open_shared_mapping(name.wide(), holder.mapping);
  if (act == Act::open && error == error_missing) return exit_missing;
  if (error) return 1;
  if (map_shared_view(holder.mapping, size_bytes, holder.view)) return 2;
  about_to_write = true;
  static_cast<unsigned char*>(holder.view.native().data)[0] = written_byte;
  return exit_wrote;
}

// A maker or remover is at work, for whom an opener would wait.
bool exclusively_locked(const Name& name) {
  const int descriptor = shm_open(name.object(), O_RDONLY | O_CLOEXEC, 0);
  if (descriptor < 0) return false;
  const bool locked = flock(descriptor, LOCK_SH | LOCK_NB) != 0;
  close(descriptor);
  return locked;
}

void take_hold(const Name& name, Holder& out) {
  ASSERT_EQ(create_shared_mapping(name.wide(), size_bytes, out.mapping).create_error, std::nullopt);
  ASSERT_EQ(map_shared_view(out.mapping, size_bytes, out.view), std::nullopt);
}

bool was_written(const Holder& holder) {
  return static_cast<const unsigned char*>(holder.view.native().data)[0] == written_byte;
}

enum class Before { nothing, stale, held };

// The other process is halted at `stop`; meanwhile we let go of what we hold and take hold anew. From then on
// there may be one object only, ours. False: the other was never halted.
bool let_both_meet(const Name& name, Before before, Act act, int stop, int& met) {
  Holder ours;
  if (before == Before::stale) make_stale(name);
  if (before == Before::held) {
    // Without a view: the child would inherit it, and a view keeps its descriptor's lock alive.
    EXPECT_EQ(create_shared_mapping(name.wide(), size_bytes, ours.mapping).create_error, std::nullopt);
  }
  const Shared<std::atomic<bool>> about_to_write;
  const Halted halted = halt_at_stop(stop, [&] { return hold_and_write(name, act, *about_to_write); });
  EXPECT_NE(halted.ending, Ending::failed);
  if (halted.ending != Ending::halted) return false;
  const bool written_before = *about_to_write;
  ours = {};
  const bool would_wait = exclusively_locked(name);
  if (!would_wait) take_hold(name, ours);
  const int exit_code = release_halted(halted.child);
  EXPECT_TRUE(exit_code == exit_wrote || exit_code == exit_missing) << exit_code;
  if (ours.view.is_open()) {
    ++met;
    EXPECT_TRUE(was_written(ours) || written_before || exit_code == exit_missing);
    Holder third;
    EXPECT_EQ(open_shared_mapping(name.wide(), third.mapping), std::nullopt);
    if (third.mapping.is_open() && !map_shared_view(third.mapping, size_bytes, third.view)) {
      std::memset(third.view.native().data, 1, size_bytes);
    }
    EXPECT_TRUE(all_bytes_are(ours.view, 1));
  }
  ours = {};
  EXPECT_FALSE(exists(name));
  return true;
}

TEST(PosixSharedMemory, AProcessHaltedAtAnyStepWhileTheNameChangesHandsEndsUpAtTheNewObject) {
  const struct {
    const char* title;
    Before before;
    Act act;
  } rows[] = {{"create from nothing", Before::nothing, Act::create},
              {"create over a stale object", Before::stale, Act::create},
              {"create beside a holder", Before::held, Act::create},
              {"open from nothing", Before::nothing, Act::open},
              {"open a stale object", Before::stale, Act::open},
              {"open beside a holder", Before::held, Act::open}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.title);
    const Name name;
    int met = 0;
    int stop = 1;
    while (let_both_meet(name, row.before, row.act, stop, met) && !HasFailure()) ++stop;
    EXPECT_FALSE(exists(name));
    EXPECT_GT(met, 0);
    ASSERT_FALSE(HasFailure()) << "system call stop " << stop;
  }
}

// ---- Many at once ----

constexpr std::size_t racers = 3;
constexpr int rounds = 300;
constexpr int free_laps = 6;
constexpr std::size_t objects_at_most = racers * rounds * (free_laps + 1);
constexpr std::int64_t patience_ns = 10'000'000'000;

// What the racers share beside the mapping that they race for. Objects are numbered by their creators; a
// racer shows the number of the object that it holds for as long as it holds it.
struct RaceBoard {
  std::atomic<std::uint64_t> objects_made;
  std::atomic<std::uint64_t> arrivals;
  std::array<std::atomic<std::uint64_t>, racers> held;
  std::array<std::atomic<std::uint64_t>, objects_at_most + 1> tickets;
  std::array<std::atomic<std::uint64_t>, objects_at_most + 1> ticket_sum;
  std::atomic<std::uint64_t> times_shared;
  std::atomic<std::uint64_t> unexpected_errors;
  std::atomic<std::uint64_t> bad_views;
  std::atomic<std::uint64_t> waits_in_vain;
  std::atomic<std::uint64_t> two_objects_at_once;
};

// The start of the raced-for mapping.
struct RacedMemory {
  std::uint64_t object;   // its number; 0 until its creator has numbered it
  std::uint64_t tickets;  // how many holders it has had
};

struct Racer {
  RaceBoard& board;
  std::size_t index;
  std::uint64_t meetings = 0;
};

template <typename Condition>
void wait_for(RaceBoard& board, const Condition& condition) {
  const std::int64_t limit_ns = steady_now_ns() + patience_ns;
  while (!condition()) {
    if (steady_now_ns() > limit_ns) {
      ++board.waits_in_vain;
      return;
    }
    sched_yield();
  }
}

// Until all racers are here.
void meet(Racer& racer) {
  const std::uint64_t all_here = ++racer.meetings * racers;
  ++racer.board.arrivals;
  wait_for(racer.board, [&] { return racer.board.arrivals >= all_here; });
}

void check_the_others(Racer& racer, std::uint64_t object) {
  for (std::size_t other = 0; other < racers; ++other) {
    const std::uint64_t also_held = racer.board.held[other];
    if (other == racer.index || also_held == 0) continue;
    ++(also_held == object ? racer.board.times_shared : racer.board.two_objects_at_once);
  }
}

void hold_and_check(Racer& racer, RacedMemory& memory, bool all_hold) {
  RaceBoard& board = racer.board;
  std::atomic_ref<std::uint64_t> number(memory.object);
  wait_for(board, [&] { return number.load() != 0; });
  const std::uint64_t object = number.load();
  board.held[racer.index] = object;
  const std::uint64_t ticket = std::atomic_ref<std::uint64_t>(memory.tickets).fetch_add(1);
  ++board.tickets[object];
  board.ticket_sum[object] += ticket;
  if (all_hold) meet(racer);
  check_the_others(racer, object);
  if (all_hold) meet(racer);
  board.held[racer.index] = 0;
}

// One life of a holder. False when there was nothing to hold.
bool run_lap(const Name& name, Racer& racer, bool may_create, bool all_hold) {
  RaceBoard& board = racer.board;
  Holder holder;
  bool made = false;
  std::optional<std::uint32_t> error;
  if (may_create) {
    const CreatedMapping created = create_shared_mapping(name.wide(), size_bytes, holder.mapping);
    error = created.create_error;
    made = !created.already_existed;
  } else {
    error = open_shared_mapping(name.wide(), holder.mapping);
    if (error == error_missing) return true;
  }
  if (error) {
    ++board.unexpected_errors;
    return false;
  }
  if (map_shared_view(holder.mapping, size_bytes, holder.view)) {
    ++board.bad_views;
    return false;
  }
  auto& memory = *static_cast<RacedMemory*>(holder.view.native().data);
  if (made) std::atomic_ref<std::uint64_t>(memory.object).store(++board.objects_made);
  hold_and_check(racer, memory, all_hold);
  return true;
}

// Rounds of unordered laps, each with a lap in which all hold at once, begun by all together from nothing.
int race(const Name& name, Racer racer) {
  for (int round = 0; round < rounds; ++round) {
    for (int lap = 0; lap < free_laps; ++lap) {
      const bool may_create = (lap + static_cast<int>(racer.index)) % 3 != 0;
      if (!run_lap(name, racer, may_create, false)) return 1;
    }
    meet(racer);
    if (!run_lap(name, racer, true, true)) return 1;
  }
  return 0;
}

TEST(PosixSharedMemory, ProcessesThatCreateOpenAndCloseAtOnceNeverHoldTwoObjectsOfOneName) {
  const Name name;
  const Shared<RaceBoard> shared_board;
  RaceBoard& board = *shared_board;
  std::array<pid_t, racers> children{};
  for (std::size_t index = 0; index < racers; ++index) {
    children[index] = fork_child([&, index] { return race(name, {board, index}); });
  }
  for (const pid_t child : children) EXPECT_EQ(exit_code_of(child), 0);

  EXPECT_EQ(board.unexpected_errors, 0u);
  EXPECT_EQ(board.bad_views, 0u);
  EXPECT_EQ(board.waits_in_vain, 0u);
  EXPECT_EQ(board.two_objects_at_once, 0u);
  EXPECT_GE(board.times_shared, rounds * racers * (racers - 1));
  EXPECT_GE(board.objects_made, static_cast<std::uint64_t>(rounds));
  for (std::size_t object = 1; object <= board.objects_made; ++object) {
    // Tickets 0, 1, 2 and so on, each given once: nothing was lost while the object lived.
    const std::uint64_t given = board.tickets[object];
    ASSERT_GT(given, 0u) << "object " << object;
    ASSERT_EQ(board.ticket_sum[object], given * (given - 1) / 2) << "object " << object;
  }
  EXPECT_FALSE(exists(name));
}

}  // namespace
}  // namespace velmora
