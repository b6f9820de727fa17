#!/usr/bin/env bash
# Starts a private slapd on loopback with a directory of print queues.
#   start-slapd.sh WORKDIR PORT NAMING_CONTEXT [LDIF...]
# The LDIF files are loaded below NAMING_CONTEXT (whose entry is made here).
# Prints the server's pid; stop it with: kill "$(cat WORKDIR/slapd.pid)".
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
work=$1 port=$2 context=$3
shift 3
mkdir -p "$work/db"
dc=$(sed -E 's/^[Dd][Cc]=([^,]+).*/\1/' <<<"$context")

cat > "$work/rootdse.ldif" <<LDIF
dn:
defaultNamingContext: $context
LDIF

cat > "$work/slapd.conf" <<CONF
include /etc/ldap/schema/core.schema
include $here/printqueue.schema
pidfile $work/slapd.pid
argsfile $work/slapd.args
modulepath /usr/lib/ldap
moduleload back_mdb
rootDSE $work/rootdse.ldif
sizelimit size.soft=1000 size.hard=1000 size.pr=unlimited
database mdb
suffix "$context"
rootdn "cn=admin,$context"
directory $work/db
maxsize 268435456
access to * by * read
CONF

{
  printf 'dn: %s\nobjectClass: zandolinDomain\ndc: %s\n\n' "$context" "$dc"
  for f in "$@"; do cat "$f"; echo; done
} > "$work/data.ldif"
slapadd -q -f "$work/slapd.conf" -l "$work/data.ldif"
slapd -f "$work/slapd.conf" -h "ldap://127.0.0.1:$port/"
for _ in $(seq 1 50); do
  [ -s "$work/slapd.pid" ] && break
  sleep 0.1
done
cat "$work/slapd.pid"
