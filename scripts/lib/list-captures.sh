# Lists the AVI files of a capture folder with their sizes, durations and streams, as
# ffprobe reads them; sets `found` to their number. Sourced by the run scripts.
#   list_captures FOLDER
list_captures() {
  local folder=$1 file duration streams
  found=0
  while IFS= read -r -d '' file; do
    found=$((found + 1))
    duration=$(ffprobe -v error -show_entries format=duration -of default=nw=1:nk=1 "$file" \
               2>/dev/null || true)
    streams=$(ffprobe -v error -show_entries stream=codec_name -of csv=p=0 "$file" 2>/dev/null \
              | paste -sd, - || true)
    printf '  %-40s %10s bytes  %8s s  [%s]\n' "$(basename "$file")" "$(stat -c %s "$file")" \
           "${duration:-?}" "${streams:-unreadable}"
  done < <(find "$folder" -maxdepth 1 -type f -iname '*.avi' -print0 | sort -z)
  [ "$found" -eq 0 ] && echo "  (none)"
  return 0
}

# Prints each AVI file of a capture folder's streams as ffprobe reads them, one line per
# stream: its kind and codec, picture size and rate or sound rate and channels, and the
# frames it holds (counted by reading the file, so a file cut off shows what is in it).
#   describe_streams FOLDER
describe_streams() {
  local folder=$1 file
  while IFS= read -r -d '' file; do
    echo "  $(basename "$file"):"
    ffprobe -v error -count_frames \
      -show_entries stream=index,codec_type,codec_name,width,height,r_frame_rate,sample_rate,channels,nb_read_frames \
      -of compact=p=0:nk=0 "$file" 2>&1 | sed 's/^/    /' || echo "    (ffprobe cannot read it)"
  done < <(find "$folder" -maxdepth 1 -type f -iname '*.avi' -print0 | sort -z)
  return 0
}
