# usage: everyLineFits.sh NIMBRA SOURCE WORK PYTHON
# Records the demo day, and holds its lines and those of the tests against the schema.
set -euo pipefail
nimbra=$1 source=$2 work=$3 python=$4
rm -rf "$work"
mkdir -p "$work"
cp -r "$source/data/packages" "$work/packages"
rm -r "$work"/packages/{night-light,storyteller}
"$nimbra" run --config "$source/data/autonomy.cfg" --as-fast-as-possible --packages "$work/packages" \
    --scenario "$source/data/demo-day.scenario.yaml" --record "$work/day" >"$work/timeline" 2>"$work/log"
"$python" "$source/tests/record/holdAgainstSchema.py" "$source/docs/recording.schema.json" \
    "$source/tests/record/events.jsonl" "$source/tests/record/version-1.jsonl" "$work/day"
