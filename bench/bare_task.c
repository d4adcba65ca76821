/* Only the system calls of one task, in the adapter's order: the job file is read, but its values
 * are given on the command line.
 *
 *   bare_task JOBFILE FOLDER UID GID PROGRAM
 */

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

static int readFile(const char* path) {
  struct stat status;
  if (stat(path, &status) != 0) return -1;
  int file = open(path, O_RDONLY | O_CLOEXEC);
  if (file == -1 || fstat(file, &status) != 0) return -1;
  char* text = malloc((size_t)status.st_size);
  ssize_t length = read(file, text, (size_t)status.st_size);
  close(file);
  free(text);
  return length == status.st_size ? 0 : -1;
}

static void runProgram(char* program) {
  int oldError = dup(STDERR_FILENO);
  dup2(STDOUT_FILENO, STDERR_FILENO);
  char* words[] = {program, NULL};
  execvp(program, words);
  dup2(oldError, STDERR_FILENO);
  perror(program);
  exit(127);
}

int main(int argc, char* argv[]) {
  if (argc != 6 || readFile(argv[1]) != 0) return 255;
  const char* folder = argv[2];
  if (chdir(folder) != 0) return 255;
  printf("Calling '%s' from '%s'\n", argv[5], folder);
  if (setgid((gid_t)atoi(argv[4])) != 0 || setuid((uid_t)atoi(argv[3])) != 0) return 255;
  umask(022);
  pid_t child = fork();
  if (child == 0) runProgram(argv[5]);
  if (child == -1) return 255;
  printf("[ServerMessage]ProcessStarted processId=%i\n", child);
  fflush(stdout);
  int status = 0;
  return waitpid(child, &status, 0) == child ? 0 : 255;
}
