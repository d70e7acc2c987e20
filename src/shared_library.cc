// libtabulon.so is the control's static library linked whole (see
// CMakeLists.txt); a shared library target needs a translation unit of its
// own, and this is it.
