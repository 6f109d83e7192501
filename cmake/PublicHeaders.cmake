# bp_public_headers(<source folder> <variable>): the paths, relative to that folder, of the public headers: those at the top of a
# room. What stands in a folder of a room, and all of base/, is ours alone.
function(bp_public_headers source_dir variable)
  file(GLOB public RELATIVE ${source_dir} ${source_dir}/*/*.h)
  list(FILTER public EXCLUDE REGEX "^base/")
  set(${variable} ${public} PARENT_SCOPE)
endfunction()
