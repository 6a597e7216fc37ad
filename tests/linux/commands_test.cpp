#include "platform/linux/LinuxCommands.h"

#include <sys/stat.h>

#include "linux/Helpers.h"

namespace tovi {
namespace {

class RealCommands : public ::testing::Test {
 protected:
  CommandResult sh(const std::string& text) { return commands.run("/bin/sh", {"-c", text}); }
  std::string script(const std::string& name, const std::string& text) {
    put(folder / name, "#!/bin/sh\n" + text + "\n");
    ::chmod((folder / name).c_str(), 0755);
    return folder / name;
  }
  TemporaryFolder folder;
  LinuxCommands commands{"/nonexistent/Tovi"};
};

TEST_F(RealCommands, CodesAndOutput) {
  struct Case {
    const char* text;
    int code;
    std::string out;
  };
  for (const Case& c : {
           Case{"echo out; echo err >&2; exit 3", 3, "out\nerr\n"}, Case{"true", 0, ""},
           Case{"kill -KILL $$", 128 + SIGKILL, ""}, Case{"printf 'a\\377b'", 0, ""},  // no UTF-8
           Case{"cat; echo end", 0, "end\n"}                                           // nothing to read
       }) {
    const CommandResult result = sh(c.text);
    EXPECT_EQ(result.code, c.code) << c.text;
    EXPECT_EQ(result.out, c.out) << c.text;
  }
  const CommandResult missing = commands.run(folder / "missing", {});
  EXPECT_EQ(missing.code, -1);
  EXPECT_EQ(missing.out, "No such file or directory");
  EXPECT_EQ(sh("head -c 300000 /dev/zero | tr '\\0' x").out.size(), 300'000u);
}

TEST_F(RealCommands, ArgumentsAreNotSeenByAShell) {
  const std::string hostile = "a b'\"$(touch " + folder.path() + "/x);*\n";
  EXPECT_EQ(commands.run("/bin/echo", {hostile}).out, hostile + "\n");
  EXPECT_FALSE(std::filesystem::exists(folder / "x"));
}

TEST_F(RealCommands, ChildrenGetNoneOfOurSignalsOrFiles) {
  ::signal(SIGPIPE, SIG_IGN);
  sigset_t ours, before;
  sigemptyset(&ours);
  sigaddset(&ours, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &ours, &before);
  const int leak = ::open("/dev/null", O_RDONLY);  // by somebody who forgot O_CLOEXEC
  ASSERT_GE(leak, 3);
  // The mask of the ignored signals in a child's own words, and the number of files it holds.
  const std::string told = commands.run("/bin/grep", {"-E", "^Sig(Blk|Ign)", "/proc/self/status"}).out;
  const std::string open = commands.run("/bin/ls", {"/proc/self/fd"}).out;
  ::close(leak);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  const auto mask = [&](const char* key) { return std::stoull(told.substr(told.find(key) + 8), nullptr, 16); };
  EXPECT_EQ(mask("SigBlk:\t"), 0u) << told;
  EXPECT_EQ(mask("SigIgn:\t") & 0x7fffffff, 0u) << told;  // two beyond belong to the C library
  EXPECT_EQ(open, "0\n1\n2\n3\n");                        // 3 is the folder that ls reads
}

TEST_F(RealCommands, ExitCodesSurviveAStarterThatIgnoresChildren) {
  ::signal(SIGCHLD, SIG_IGN);
  EXPECT_EQ(sh("exit 5").code, 5);
  ::signal(SIGCHLD, SIG_DFL);
}

TEST_F(RealCommands, ASpawnedProgramRunsOnWithoutUsAndLeavesNoZombie) {
  const std::string go = folder / "go", mark = folder / "mark";
  commands.spawn("/bin/sh", {"-c", "echo to nobody; i=0; until [ -e '" + go +
                                       "' ] || [ $i = 500 ]; do sleep 0.01; i=$((i+1)); done; "
                                       "echo $i $PPID > '" +
                                       mark + ".new'; mv '" + mark + ".new' '" + mark + "'"});
  put(go, "");
  ASSERT_TRUE(eventually([&] { return std::filesystem::exists(mark); }, 30));
  std::istringstream told(contents(mark));
  int rounds = 0, parent = 0;
  told >> rounds >> parent;
  EXPECT_LT(rounds, 500) << "it was waited for";
  EXPECT_NE(parent, ::getpid()) << "it is our child and will be our zombie";
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
}

TEST_F(RealCommands, OpeningStartsTheApplicationAndNothingElse) {
  const std::string mark = folder / "mark";
  const std::string app =
      script("Tovi", "echo \"$# $PWD $(ls /proc/self/fd | wc -l) $(cut -d' ' -f6 /proc/$$/stat) $$\" > " + mark +
                         ".new; mv " + mark + ".new " + mark);
  LinuxCommands own{app};
  const int leak = ::open("/dev/null", O_RDONLY);
  const CommandResult opened = own.run("/usr/bin/open", {"-g", "-b", "com.norvane.Tovi"});
  ::close(leak);
  EXPECT_EQ(opened.code, 0);
  ASSERT_TRUE(eventually([&] { return std::filesystem::exists(mark); }));
  std::istringstream told(contents(mark));
  std::string arguments, folderItRunsIn;
  int files = 0, session = 0, pid = 0;
  told >> arguments >> folderItRunsIn >> files >> session >> pid;
  EXPECT_EQ(arguments, "0");
  EXPECT_EQ(folderItRunsIn, "/");
  EXPECT_EQ(files, 4);  // the standard streams and the folder that ls reads
  EXPECT_EQ(session, pid) << "it would go down with our terminal";
  for (const std::vector<std::string>& other :
       {std::vector<std::string>{}, {"-g", "-b", "com.apple.Music"}, {"-b", "com.norvane.Tovi"}, {"http://x"}}) {
    const CommandResult refused = own.run("/usr/bin/open", other);
    EXPECT_EQ(refused.code, -1);
    EXPECT_EQ(refused.out, "no such tool here");
  }
}

TEST_F(RealCommands, ElevationSpeaksPkexecsCodes) {
  using Outcome = ElevationResult::Outcome;
  struct Case {
    std::string script;
    Outcome outcome;
    std::string message;
  };
  for (const Case& c : {Case{"[ \"$1 $2\" = '/bin/sh -c' ] && exec \"$@\"", Outcome::done, ""},
                        Case{"exit 126", Outcome::cancelled, ""},
                        Case{"echo Not authorized >&2; exit 127", Outcome::failed, "Not authorized"},
                        Case{"printf 'visudo: bad\\n\\n'; exit 1", Outcome::failed, "visudo: bad"}}) {
    LinuxCommands elevated{"", script("pkexec", c.script)};
    const ElevationResult result = elevated.runElevated("echo 'one line' > " + (folder / "proof"), "Why?");
    EXPECT_EQ(result.outcome, c.outcome) << c.script;
    EXPECT_EQ(result.message, c.message) << c.script;
  }
  EXPECT_EQ(contents(folder / "proof"), "one line\n");
  const ElevationResult none = LinuxCommands("", folder / "missing").runElevated("true", "");
  EXPECT_EQ(none.outcome, Outcome::failed);
  EXPECT_EQ(none.message, "This computer has no way to ask for your password once (pkexec is missing).");
}

}  // namespace
}  // namespace tovi
