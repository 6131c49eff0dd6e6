# moment.bat: tells when it ran, for a page of the demonstration site. The server turns CR LF into a line break.
printf 'It ran at %s,\r\nas process %s.' "$(date +%H:%M:%S)" "$$"
