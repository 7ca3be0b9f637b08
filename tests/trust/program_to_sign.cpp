// Never run: a small program for make_signed_files.py to sign.
#include <cstdio>

int main() {
  return std::puts("A program to sign") < 0 ? 1 : 0;
}
