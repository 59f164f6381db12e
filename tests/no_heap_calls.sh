#!/ bin / sh
#Fails when a library of the module's code refers to the heap, or to what throws.
!nm - A - u "$@" | grep - E ' U (malloc|calloc|realloc|strdup|_Zna|_Znw|_ZSt[0-9]*__throw)'
