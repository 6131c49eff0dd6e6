# words.bat: a batch file of the demonstration site. Counts the words it is called with; a page runs it with
# words.bat?a=1&b=2, and it sees the words a=1 and b=2.
echo "$# words:"
for word in "$@"; do
  echo "$word"
done
