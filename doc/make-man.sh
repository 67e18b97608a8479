#!/usr/bin/env bash
# Writes the manual page quiv(1) from the command's own help texts (quiv help and quiv CMD -h),
# so the page and the help never disagree. Usage: doc/make-man.sh path/to/quiv > doc/quiv.1
# tests/tools/manpage_test.sh checks that doc/quiv.1 is this script's current output.
set -euo pipefail
QUIV=${1:-quiv}

# roff: a backslash is written \e; a line starting with . or ' is protected with \&.
escape() { sed -e 's/\\/\\e/g' -e "s/^\\([.']\\)/\\\\\\&\\1/"; }

cat <<'HEAD'
.TH QUIV 1 "" "QUIV 1.0" "User Commands"
.SH NAME
quiv \- encrypt, hash, sign and move keys the way CryptoAPI-based pages did
.SH SYNOPSIS
.B quiv
.I command
.RI [ options ]
.SH DESCRIPTION
.B quiv
runs the QUIV library's objects from a shell: keys derived from pass phrases exactly as the
library derives them, the Microsoft key blobs (PUBLICKEYBLOB, PRIVATEKEYBLOB, SIMPLEBLOB), key
containers, little-endian signatures, and conversion of keys to and from PEM and DER.
Options start with one dash; each command's
.B \-h
prints the text below.
.SH COMMANDS
HEAD
"$QUIV" help | sed -n 's/^  \([a-z]*\)  .*/\1/p' | while read -r command; do
  echo ".SS $command"
  echo ".nf"
  "$QUIV" "$command" -h | escape
  echo ".fi"
done
cat <<'TAIL'
.SH EXIT STATUS
0 on success; 1 on a failure, with the library's error record (its one-line message) on
standard error; 2 on a usage error.
.B verify
exits 0 for a good signature and 1 for a bad one, and says which.
A command that writes to
.B \-out
writes nothing there unless it succeeded.
.SH ENVIRONMENT
.TP
.B QUIV_KEY_STORE
moves the user's and the machine's key stores to
.I DIR/user
and
.IR DIR/machine .
.TP
.B XDG_DATA_HOME
the user's key store is
.I $XDG_DATA_HOME/quiv/keys
(default
.IR ~/.local/share/quiv/keys ).
.SH FILES
.TP
.I /var/lib/quiv/keys
the machine's key containers
.RB ( \-machine ).
.SH SEE ALSO
.BR openssl (1),
and the user guide,
.I doc/guide.md
in the source tree: byte order, how keys are derived from pass phrases, and recipes.
TAIL
