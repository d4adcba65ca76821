/* The minimal program that answers a request for information: it writes the bytes. */

#include <stdio.h>

int main(void) {
  printf(
      "<AdapterInfo>\n\t<Name>%s</Name>\n\t<Version>%d</Version>\n"
      "\t<Description>%s</Description>\n</AdapterInfo>\n",
      "Command Line Tool", 400, "Command Line Tool v2023 with user rights");
  return 0;
}
