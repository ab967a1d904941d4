import com.corvane.probes.MethodPattern;
import com.corvane.probes.Param;
import com.corvane.probes.Table;

// A row with three columns for each call of RowWork.step.
@MethodPattern("RowWork:step(int)")
public class RowRecorder {
    static final Table STEPS = new Table("Steps", false);
    static final Table.IntColumn VALUE = STEPS.intColumn("Value");
    static final Table.LongColumn SCALED = STEPS.longColumn("Scaled");
    static final Table.StringColumn KIND = STEPS.stringColumn("Kind");

    public static void onEnter(@Param(1) int value) {
        int row = STEPS.createRow();
        VALUE.set(row, value);
        SCALED.set(row, value * 3L);
        KIND.set(row, "step");
    }
}
