# Sourced by bash in the root of the tree: the folders that hold our code, and their files.
# shellcheck shell=bash

rooms=(records util store pipe server client tamlogctl driver examples packaging conformance tests fuzz bench)

# room_files EXTENSION...: the files with these extensions, one a line.
room_files() {
  local room extension
  for room in "${rooms[@]}"; do
    [[ -d $room ]] || continue
    for extension in "$@"; do
      find "$room" -type f -name "*.$extension"
    done
  done | sort
}
