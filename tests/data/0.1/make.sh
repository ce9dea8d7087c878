#!/bin/sh
# Makes the data beside it with the program of version 0.1 and real servers: make.sh PELLOR
set -eu
pellor=$(realpath "$1")
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d /tmp/pellor-0.1-XXXXXX)
servers=$work/servers
programs=$(pg_config --bindir)

finish() {
  for file in "$work"/*.id; do [ ! -e "$file" ] || kill "$(cat "$file")" || true; done
  wait
  rm -rf "$work"
}
trap finish EXIT

# Runs the program for one home, with nothing of the environment of the user who runs this.
run() {
  home=$1
  shift
  mkdir -p "$work/$home/run"
  chmod 700 "$work/$home/run"
  env -i PATH="$PATH" LC_ALL=C.UTF-8 LANGUAGE=en PGHOST="$servers" HOME="$work/$home" XDG_RUNTIME_DIR="$work/$home/run" \
    "$pellor" --data "$work/$home/data" --contacts "$work/contacts" --config "$here/$home/config.toml" "$@"
}

start() {
  name=$1
  shift
  "$@" >"$work/$name.log" 2>&1 &
  echo $! >"$work/$name.id"
}

wait_for() { until "$@" >"$work/waiting" 2>&1; do sleep 0.1; done; }

# Four pages of four slots: three with titles, the first with an empty slot in its middle, the last empty. The first
# three friends are the favorites among the contacts; three others have no contact, and so no GUID and no name.
make_list() {
  run "$1" settings page-size 4
  run "$1" settings max-pages 6
  for who in lin-yunque ليلى Мила joerg-muehlgrab "+49 30 23125099" Íris night.desk@example.org "+1 212 555 0199" \
    han-byeolha; do
    run "$1" add "$who"
  done
  run "$1" remove 1:2
  run "$1" title 1 Familie
  run "$1" title 2 "Друзья"
  run "$1" title 3 "仕事 ✈"
  run "$1" meta 1:1 ringtone chimes
  run "$1" meta 1:1 color "bleu foncé"
  run "$1" meta 2:4 note "встреча в пять"
  run "$1" reply-as 1:4 me@work.example
}

# A row of the list is damaged, as by a failing disk; the next program puts the list aside and goes on with the last
# good copy of it.
make_sqlite() {
  make_list sqlite
  sqlite3 "$work/sqlite/data/preferences.sqlite" \
    "UPDATE runs SET value = substr(value, 1, length(value) - 1), revision = revision + 1"
  run sqlite meta 1:3 since 2024
  run sqlite --json list >"$here/sqlite/list.json"
  rm -rf "$here/sqlite/data"
  cp -r "$work/sqlite/data" "$here/sqlite/data"
}

make_postgresql() {
  mkdir "$servers"
  as=
  if [ "$(id -u)" = 0 ]; then
    chown postgres "$work" "$servers"
    as="setpriv --reuid=postgres --regid=postgres --clear-groups"
  fi
  cd "$servers"
  $as "$programs/initdb" -D "$servers/data" -A trust -U pellor -E UTF8 --locale=C --no-sync >"$work/initdb.log"
  start postgresql $as "$programs/postgres" -D "$servers/data" -k "$servers" -h ""
  export PGHOST="$servers" PGUSER=pellor
  wait_for "$programs/psql" -c "SELECT 1" postgres
  "$programs/createdb" pellor
  make_list postgresql
  "$programs/psql" -qc "UPDATE pellor.runs SET value = substr(value, 1, length(value) - 1)" pellor
  run postgresql meta 1:3 since 2024
  run postgresql --json list >"$here/postgresql/list.json"
  # Statements alone, so that any client can run them: no COPY, no commands of psql.
  "$programs/pg_dump" --schema=pellor --no-owner --no-privileges --inserts pellor |
    grep -v '^\\' >"$here/postgresql/pellor.sql"
}

certificate() {
  openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 36500 "$@" 2>"$work/openssl.log"
}

make_broker() {
  mkdir "$work/broker"
  cd "$work/broker"
  certificate -subj /CN=authority -keyout ca.key -out ca.pem
  certificate -CA ca.pem -CAkey ca.key -subj /CN=broker -addext subjectAltName=IP:127.0.0.1 -keyout key.pem -out broker.pem
  for name in laptop phone; do
    printf 'user %s\ntopic read pellor/%s/#\ntopic write pellor/+/%s/#\n' $name $name $name
  done >rules
  cat >mosquitto.conf <<END
listener 28883 127.0.0.1
cafile $work/broker/ca.pem
certfile $work/broker/broker.pem
keyfile $work/broker/key.pem
require_certificate true
use_identity_as_username true
allow_anonymous false
acl_file $work/broker/rules
user root
END
  start broker mosquitto -c mosquitto.conf
}

invitation() {
  name=${1#device/}
  run "$1" device pair --name "$name" >"$work/asked"
  openssl x509 -req -in "$work/$1/data/device/request.pem" -CA "$work/broker/ca.pem" -CAkey "$work/broker/ca.key" \
    -CAcreateserial -days 36500 -out "$work/issued.pem" 2>"$work/openssl.log"
  run "$1" --json device pair --certificate "$work/issued.pem" --ca "$work/broker/ca.pem" |
    sed 's/.*"invitation":"\([^"]*\)".*/\1/'
}

is_in_step() {
  run device/laptop device status
  run device/laptop --json device status | grep -q '"due":\[\]' &&
    run device/laptop --json device status | grep -Eq '"generation":([0-9]+),"acknowledged":\1,'
}

# The laptop sends, the phone receives. The last title is still to be sent.
make_device() {
  make_broker
  laptop=$(invitation device/laptop)
  phone=$(invitation device/phone)
  run device/laptop device pair "$phone" >"$work/paired"
  run device/phone device pair "$laptop" >"$work/paired"
  run device/phone settings page-size 4
  run device/phone settings max-pages 6
  start serving env -i PATH="$PATH" LC_ALL=C.UTF-8 LANGUAGE=en HOME="$work/device/phone" \
    XDG_RUNTIME_DIR="$work/device/phone/run" "$pellor" --data "$work/device/phone/data" --contacts "$work/contacts" \
    --config "$here/device/phone/config.toml" device serve
  make_list device/laptop
  wait_for is_in_step
  kill -INT "$(cat "$work/serving.id")"
  wait "$(cat "$work/serving.id")"
  rm "$work/serving.id"
  kill "$(cat "$work/broker.id")"
  wait "$(cat "$work/broker.id")" || true
  rm "$work/broker.id"
  run device/laptop title 1 Zuhause
  for side in laptop phone; do
    run device/$side --json list >"$here/device/$side/list.json"
    (cd "$work/device/$side/data" && rm -f contacts-index.sqlite canonical-forms-* counters.prom)
    rm -rf "$here/device/$side/data"
    cp -r "$work/device/$side/data" "$here/device/$side/data"
  done
}

cp -r "$here/contacts" "$work/contacts"
make_sqlite
make_postgresql
make_device
