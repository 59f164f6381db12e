#!/bin/sh
# Fails when a library of the module's code refers to the heap, or to what throws; and when one refers to nothing.
: "${1:?no library is given}"
for library in "$@"; do
  symbols=$(nm -u "$library" | grep ' U ') || { echo "$library has no symbols"; exit 1; }
  ! echo "$symbols" | grep -E ' U (malloc|calloc|realloc|strdup|_Zna|_Znw|_ZSt[0-9]*__throw)' || exit 1
done
