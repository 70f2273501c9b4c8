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
