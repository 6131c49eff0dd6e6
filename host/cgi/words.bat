# words.bat: counts the words it is called with, for a page of the demonstration site. With words.bat?a=1&b=2 they are
# a=1 and b=2. The server turns CR LF into a line break.
printf '%s words:' "$#"
for word in "$@"; do
  printf '\r\n%s' "$word"
done
