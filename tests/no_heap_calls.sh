#!/bin/sh
# Fails when a library of the module's code refers to the heap.
! nm -A -u "$@" | grep -E ' U (malloc|calloc|realloc|strdup|_Zna|_Znw)'
