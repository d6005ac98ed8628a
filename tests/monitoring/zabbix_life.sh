# shellcheck shell=sh
# Sourced in a private system, beside the packages and the guide.

# await SECONDS COMMAND...: until it succeeds.
await() {
    tries=$(($1 * 10))
    shift
    until "$@" >/dev/null 2>&1; do
        tries=$((tries - 1))
        [ $tries -gt 0 ] || { echo "FAILED: $*"; cat reply; tail -n 20 ./*.log; exit 1; }
        sleep 0.1
    done
}

# Two agents, of which the second has another password, and the exporter with its sample.
rm -rf /run/systemd
printf '#!/bin/sh\nexit 101\n' >/usr/sbin/policy-rc.d
chmod 755 /usr/sbin/policy-rc.d
dpkg -i ./*.deb >packages.log 2>&1 || { cat packages.log; exit 1; }
mkdir -p /etc/zot/hosts
for n in 1 2; do
    echo "127.0.0.$n web$n" >>/etc/hosts
    echo "password-$n" >/etc/zot/hosts/web$n
    chmod 600 /etc/zot/hosts/web$n
    sed "s/^host=.*/host=web$n/; s/^password=.*/password=password-1/; s/^pidfile=.*/pidfile=/" \
        /etc/zot/zot.cfg >web$n.cfg
    zot -i web$n.cfg >web$n.log &
done
echo 'the log begins' >/var/log/messages
cp /etc/zot/zot-exporter.yml.sample /etc/zot/zot-exporter.yml
zot-exporter >exporter.log 2>&1 &

# The database, without what Zabbix brings for other hosts.
programs=$(find /usr/lib/postgresql -name initdb | tail -n 1)
programs=${programs%/*}
install -d -o nobody db
as_nobody() { setpriv --reuid=nobody --clear-groups "$@"; }
as_nobody "$programs/initdb" -D db/data -U zabbix -A trust --no-sync >initdb.log 2>&1
as_nobody "$programs/postgres" -D db/data -k "$PWD/db" -h '' -F >postgres.log 2>&1 &
export PGHOST="$PWD/db" PGUSER=zabbix
await 20 psql -c 'CREATE DATABASE zabbix' postgres
{
    zcat /usr/share/zabbix-server-pgsql/schema.sql.gz
    zcat /usr/share/zabbix-server-pgsql/data.sql.gz | sed '/^INSERT INTO hosts /,$d'
    echo 'COMMIT;'
} | psql -q -v ON_ERROR_STOP=1 zabbix >load.log 2>&1

# The server, which looks at its configuration each second, and its pages.
sed -n '/^mkdir .*externalscripts/,/^```/p' guide.md | sed '/^```/d' >commands.sh
[ -s commands.sh ]
# shellcheck source=/dev/null
. ./commands.sh
chmod 755 /package-test
cat >server.conf <<END
DBHost=$PGHOST
DBName=zabbix
DBUser=zabbix
LogFile=$PWD/db/server.log
PidFile=/tmp/server.pid
SocketDir=/tmp
CacheUpdateFrequency=1
END
chmod 777 db
zabbix_server -f -c server.conf >server.log 2>&1 &
cat >/etc/zabbix/zabbix.conf.php <<END
<?php
\$DB['TYPE'] = 'POSTGRESQL';
\$DB['SERVER'] = '$PGHOST';
\$DB['DATABASE'] = \$DB['USER'] = 'zabbix';
END
php -S 127.0.0.1:80 -t /usr/share/zabbix >php.log 2>&1 &
await 20 curl -s 127.0.0.1

# api METHOD PARAMETERS: leaves the answer in the file reply.
api() {
    printf '{"jsonrpc":"2.0","id":1,"method":"%s","params":%s%s}' "$1" "$2" "${session:-}" >request
    curl -s -H 'Content-Type: application/json-rpc' -d @request 127.0.0.1/api_jsonrpc.php >reply
    ! grep '"error":{' reply
}
# number NAME: the first one of this name in the reply
number() { grep -o "\"$1\":\[*\"[0-9]*" reply | head -n 1 | grep -o '[0-9]*$'; }
api user.login '{"user":"Admin","password":"zabbix"}'
session=$(sed 's/.*"result":"\([^"]*\)".*/,"auth":"\1"/' reply)
rules=$(printf ',"%s":{"createMissing":true}' groups templates items triggers discoveryRules)
# The variable is PHP's.
# shellcheck disable=SC2016
api configuration.import "{\"format\":\"yaml\",\"rules\":{${rules#,}},\"source\":$(
    php -r 'echo json_encode(file_get_contents($argv[1]));' /usr/share/zot-exporter/zabbix.yaml)}"
api template.get '{}'
template=$(number templateid)
for n in 1 2; do
    api host.create "{\"host\":\"web$n\",\"groups\":[{\"groupid\":2}],
        \"interfaces\":[{\"type\":1,\"main\":1,\"useip\":0,\"dns\":\"web$n\",\"ip\":\"\",\"port\":\"1055\"}],
        \"templates\":[{\"templateid\":$template}],
        \"macros\":[{\"macro\":\"{\$ZOT.INTERVAL}\",\"value\":\"1s\"},
            {\"macro\":\"{\$ZOT.MODULES}\",\"value\":\"base,logs,system\"}]}"
    host=$(number hostids)
    api hostinterface.get "{\"hostids\":$host}"
    api item.create "{\"name\":\"disk\",\"type\":10,\"value_type\":4,\"delay\":\"1s\",\"hostid\":$host,
        \"interfaceid\":$(number interfaceid),\"key_\":\"$(grep '^zotq\[' guide.md)\"}"
done
# has HOST KEY VALUE: the item has a last value like this pattern; what never had one has 0.
has() {
    api item.get "{\"host\":\"$1\",\"output\":[\"lastvalue\",\"lastclock\"],\"filter\":{\"key_\":\"$2\"}}"
    grep "\"lastvalue\":\"$3\"" reply | grep -v '"lastclock":"0"'
}
# alarms HOST NAME: a trigger has fired whose name begins like this pattern.
alarms() {
    api trigger.get "{\"host\":\"$1\",\"output\":[\"description\"],\"expandDescription\":1,\"filter\":{\"value\":1}}"
    grep "\"description\":\"$2" reply
}
await 30 has web1 "$(grep '^zotq\[' guide.md)" '{\\"code\\":\\"200\\",\\"values\\":\[\\"[0-9]*.*'
await 30 has web2 "$(grep '^zotq\[' guide.md)" '.*closed.*'
await 30 alarms web2 'It hangs up'
await 30 has web1 'zot.disk.used[root]' '[0-9.]*'
await 30 has web1 'zot.value[zot_cpu_usage_ratio,cpu]' '[0-9.]*'
await 30 has web1 'zot.log.lines[errors]' 0
await 30 has web1 zot.failure none
if alarms web1 ''; then
    echo "FAILED: an alarm without a reason"
    exit 1
fi
echo 'error: no money' >>/var/log/messages
await 30 alarms web1 'New lines in .var.log.messages'
pkill -f 'web1.cfg'
await 30 alarms web1 'No answer: connect_refused'
