// vrig vhdx serve: runs nbdkit with the vellumrig plugin, on a Unix socket, in
// the foreground, with the options a user would otherwise look up.
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "cli.h"
#include "module.h"
#include "vhdx_access.h"
#include "vhdx_commands.h"

namespace vrig {
namespace {

pid_t serving = 0;

constexpr char kPluginFile[] = "nbdkit-vellumrig-plugin.so";

// The plugin beside vrig's module in the build tree, or where the install
// put it (nbdkit's own plugin folder under the library folder); else
// nbdkit looks for "vellumrig" in its plugin folder.
std::string FindPlugin() {
  if (const char* given = std::getenv("VRIG_NBDKIT_PLUGIN"); given && *given) return given;
  const std::string folder = ExecutableFolder();
  std::vector<std::string> candidates{folder + "/../lib/" + kPluginFile};
#ifdef VRIG_LIBDIR_FROM_BINDIR
  candidates.push_back(folder + "/" VRIG_LIBDIR_FROM_BINDIR "/nbdkit/plugins/" + kPluginFile);
#endif
  for (const std::string& candidate : candidates)
    if (::access(candidate.c_str(), R_OK) == 0) return candidate;
  return "vellumrig";
}

}  // namespace

int VhdxServe(std::vector<std::string> args) {
  const bool readOnly = TakeFlag(args, "--readonly");
  std::string socket;
  const bool named = TakeOption(args, "--socket", socket);
  NeedArgs(args, 1, "vhdx serve <file> [--socket <path>] [--readonly]");
  const std::string file = Narrow(Absolute(args[0]));
  if (!PathExists(file)) throw std::runtime_error("'" + args[0] + "' does not exist");
  if (!named) {
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    socket = std::string(runtime && *runtime ? runtime : "/tmp") + "/vrig-" + std::to_string(::getpid()) + ".sock";
  }
  // nbdkit would take the name over; a socket left by a run that was
  // killed is the user's to remove.
  if (PathExists(socket)) throw std::runtime_error("'" + socket + "' exists; choose another --socket or remove it");

  std::vector<std::string> argv{"nbdkit", "--foreground", "--unix", socket};
  if (readOnly) argv.push_back("--readonly");
  argv.insert(argv.end(), {FindPlugin(), "file=" + file});
  if (readOnly) argv.push_back("readonly=true");

  const std::string uri = "nbd+unix:///?socket=" + socket;
  std::printf("Serving '%s' %s on %s\n", args[0].c_str(), readOnly ? "read-only" : "writable", uri.c_str());
  std::printf("  qemu-img info '%s'\n  nbdinfo --map '%s'\n  nbdfuse <folder> --unix %s\n", uri.c_str(),
              uri.c_str(), socket.c_str());
  std::printf("Ctrl-C stops the server.\n");
  std::fflush(stdout);

  std::vector<char*> raw;
  for (std::string& arg : argv) raw.push_back(arg.data());
  raw.push_back(nullptr);
  const pid_t child = ::fork();
  if (child < 0) throw std::runtime_error(std::string("cannot start nbdkit: ") + std::strerror(errno));
  if (child == 0) {
    ::execvp("nbdkit", raw.data());
    const int error = errno;
    std::fprintf(stderr, "vrig: cannot start nbdkit: %s%s\n", std::strerror(error),
                 error == ENOENT ? " (Debian: apt install nbdkit)" : "");
    ::_exit(127);
  }
  // Ctrl-C reaches nbdkit as well, which stops; vrig stays to clean up
  // after it, and passes a termination on.
  serving = child;
  struct sigaction forward {};
  forward.sa_handler = [](int signal) { ::kill(serving, signal); };
  ::sigaction(SIGTERM, &forward, nullptr);
  ::sigaction(SIGHUP, &forward, nullptr);
  ::signal(SIGINT, SIG_IGN);
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  // nbdkit leaves its socket behind, which would stand in the way of the
  // next run.
  struct stat st;
  if (::lstat(socket.c_str(), &st) == 0 && S_ISSOCK(st.st_mode)) ::unlink(socket.c_str());
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  // Stopped by the user, as intended.
  return WTERMSIG(status) == SIGINT || WTERMSIG(status) == SIGTERM ? 0 : 1;
}

}  // namespace vrig
