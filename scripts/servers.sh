# How the servers and clients of servers-demo.sh are set up and asked: as Debian ships them, on 127.0.0.1, in the
# current folder, each with a key of RSA and one of EC. Sourced, never run; uses what servers-demo.sh defines.

# Who signs for whom: the users that Debian has for the servers. Without root all is one user's.
declare -A users=([nginx]=www-data [apache]=www-data [haproxy]=haproxy [postgresql]=postgres [curl]=root [psql]=root)
declare -A reloads=([nginx]=HUP [apache]=USR1 [haproxy]=USR2 [postgresql]=HUP)

# Eight ports that nobody listens at, below those that the kernel gives away.
free_ports() {
  local port
  ports=$((10000 + RANDOM % 1250 * 8))
  for port in $(seq $ports $((ports + 7))); do
    if (: <"/dev/tcp/127.0.0.1/$port") 2>/dev/null; then
      free_ports
      return
    fi
  done
}
port_of() { # SERVER KEY
  local -A offsets=([nginx]=0 [apache]=2 [haproxy]=4 [postgresql]=6 [rsa]=0 [ec]=1)
  echo $((ports + offsets[$1] + offsets[$2]))
}

start_nginx() {
  local key
  {
    cat <<CONF
user ${users[nginx]};
pid $work/nginx.pid;
events {}
http {
  access_log off;
  ssl_protocols TLSv1.2 TLSv1.3;
  ssl_verify_client optional;
  ssl_client_certificate ca.crt;
CONF
    for key in rsa ec; do
      cat <<CONF
  server {
    listen 127.0.0.1:$(port_of nginx $key) ssl;
    ssl_certificate $key.crt;
    ssl_certificate_key nginx-$key.ref;
    location / { return 200 '\$ssl_protocol \$ssl_cipher \$ssl_client_verify'; }
  }
CONF
    done
    echo '}'
  } >nginx.conf
  start nginx "$me" nginx -p "$work" -c nginx.conf -e "$work/nginx.log" -g 'daemon off;'
}

start_apache() {
  local name key
  mkdir www
  echo '<!--#echo var="SSL_PROTOCOL" --> <!--#echo var="SSL_CIPHER" -->' >www/index.html
  {
    for name in mpm_event authz_core ssl include dir; do
      echo "LoadModule ${name}_module /usr/lib/apache2/modules/mod_$name.so"
    done
    cat <<CONF
User ${users[apache]}
Group $(id -gn "${users[apache]}")
ServerName localhost
DefaultRuntimeDir $work
PidFile apache.pid
ErrorLog $work/apache.log
LogLevel ssl:info
DocumentRoot www
DirectoryIndex index.html
Options +Includes
SetOutputFilter INCLUDES
SSLOptions +StdEnvVars
CONF
    for key in rsa ec; do
      cat <<CONF
Listen 127.0.0.1:$(port_of apache $key)
<VirtualHost 127.0.0.1:$(port_of apache $key)>
  SSLEngine on
  SSLCertificateFile $work/$key.crt
  SSLCertificateKeyFile $work/apache-$key.ref
</VirtualHost>
CONF
    done
  } >apache.conf
  start apache "$me" apache2 -d "$work" -f "$work/apache.conf" -DFOREGROUND
}

# In its chroot, if root starts it: the holder's socket has another name there.
start_haproxy() {
  local key conf=openssl.cnf
  {
    cat <<CONF
global
  log stdout format raw local0
  stats socket $work/haproxy.sock mode 600 expose-fd listeners
CONF
    if [ "$me" -eq 0 ]; then
      conf=jail.cnf
      printf '%s\n' "  chroot $work/jail" '  user haproxy' '  group haproxy'
    fi
    cat <<CONF
defaults
  mode http
  log global
  timeout client 60s
  error-log-format "%ci:%cp %ft: %[ssl_fc_err_str]"
CONF
    for key in rsa ec; do
      # HAProxy finds the key of a certificate in the file of this name with .key.
      cp $key.crt haproxy-$key.crt
      cp haproxy-$key.ref haproxy-$key.crt.key
      cat <<CONF
frontend $key
  bind 127.0.0.1:$(port_of haproxy $key) ssl crt haproxy-$key.crt
  http-request return status 200 content-type text/plain lf-string "%[ssl_fc_protocol] %[ssl_fc_cipher]"
CONF
    done
  } >haproxy.cfg
  OPENSSL_CONF=$work/$conf start haproxy "$me" haproxy -W -f haproxy.cfg
}

# One server has one key. It refuses one that others may read, a reference, too.
start_postgresql() {
  local key data
  for key in rsa ec; do
    data=$work/postgresql-$key
    install -d -m 700 -o "${users[postgresql]}" "$data"
    (as "${users[postgresql]}" initdb -D "$data" -U postgres -A reject --no-locale --no-sync) >/dev/null
    install -m 600 -o "${users[postgresql]}" postgresql-$key.ref "$data/server.ref"
    printf '%s\n' 'hostssl template1 postgres 127.0.0.1/32 trust clientcert=verify-ca' \
      'hostssl postgres postgres 127.0.0.1/32 trust' >"$data/pg_hba.conf"
    cat >>"$data/postgresql.conf" <<CONF
listen_addresses = '127.0.0.1'
port = $(port_of postgresql $key)
unix_socket_directories = ''
fsync = off
ssl = on
ssl_cert_file = '$work/$key.crt'
ssl_key_file = 'server.ref'
ssl_ca_file = '$work/ca.crt'
CONF
    start postgresql-$key "${users[postgresql]}" postgres -D "$data"
  done
}

# fetch WHO KEY CIPHERS: prints version and cipher of a connection as its server saw it, and whether the client has
# shown a certificate. Without CIPHERS that is TLS 1.3.
fetch() {
  case $1 in
  curl) over_https nginx "$2" "$3" --cert "$2.crt" --key "curl-$2.ref" ;;
  psql) over_postgres "$2" "$3" "dbname=template1 sslcert=$2.crt sslkey=psql-$2.ref" ;;
  postgresql) over_postgres "$2" "$3" dbname=postgres ;;
  *) over_https "$@" ;;
  esac
}
over_https() { # SERVER KEY CIPHERS OPTIONS...
  curl -sS --cacert ca.crt ${3:+--tls-max 1.2 --ciphers "$3"} "${@:4}" "https://127.0.0.1:$(port_of "$1" "$2")/"
}
place_of_postgresql() { # KEY
  echo "host=127.0.0.1 port=$(port_of postgresql "$1") user=postgres sslmode=verify-full sslrootcert=ca.crt"
}
over_postgres() { # KEY CIPHERS PARAMETERS
  env ${2:+PGSSLMAXPROTOCOLVERSION=TLSv1.2 OPENSSL_CONF="$work/$2.cnf"} \
    psql -XAtF ' ' "$(place_of_postgresql "$1") $3" -c "select version, cipher,
      case when client_dn is null then 'NONE' else 'SUCCESS' end from pg_stat_ssl where pid = pg_backend_pid()"
}

# load SERVER: fifty connections, five at a time, no session taken up again; prints of how many the data came.
load() {
  local _
  if [ "$1" = postgresql ]; then
    pgbench -n -C -c 5 -j 2 -t 10 -f select.sql "$(place_of_postgresql rsa) dbname=postgres" 2>>load.log |
      sed -n 's/^number of transactions actually processed: \([0-9]*\).*/\1/p'
    return
  fi
  {
    for _ in 1 2 3 4 5; do
      curl -sS --cacert ca.crt --no-sessionid -H 'Connection: close' -o /dev/null -w '%{http_code}\n' \
        "https://127.0.0.1:$(port_of "$1" rsa)/?[1-10]" 2>>load.log &
    done
    wait
  } | grep -c '^200$' || true
}
reload() { # SERVER
  local name
  for name in "${!process[@]}"; do
    [ "${name%-*}" != "$1" ] || kill -"${reloads[$1]}" "${process[$name]}"
  done
}
