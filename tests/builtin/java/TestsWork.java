import org.junit.platform.engine.discovery.DiscoverySelectors;
import org.junit.platform.launcher.core.LauncherDiscoveryRequestBuilder;
import org.junit.platform.launcher.core.LauncherFactory;

/**
 * Runs tests of known results in three frameworks, each with one test that
 * passes, one that fails an assertion, one that throws and one that gives up.
 */
public class TestsWork {
    public static void main(String[] args) {
        org.junit.runner.Result four = org.junit.runner.JUnitCore.runClasses(Four.class);
        System.out.println("junit 4: " + four.getRunCount() + " run, " + four.getFailureCount() + " failed");
        LauncherFactory.create().execute(LauncherDiscoveryRequestBuilder.request()
                .selectors(DiscoverySelectors.selectClass(Five.class)).build());
        org.testng.TestNG testng = new org.testng.TestNG(false);
        testng.setUseDefaultListeners(false);
        testng.setVerbose(0);
        testng.setTestClasses(new Class<?>[] {WithTestNG.class});
        testng.run();
        System.out.println("testng: " + testng.getStatus());
    }

    public static class Four {
        @org.junit.Test
        public void passes() {
        }

        @org.junit.Test
        public void fails() {
            org.junit.Assert.assertEquals(1, 2);
        }

        @org.junit.Test
        public void throwsAnError() {
            throw new IllegalStateException("broken");
        }

        @org.junit.Test
        public void givesUp() {
            org.junit.Assume.assumeTrue(false);
        }
    }

    public static class Five {
        @org.junit.jupiter.api.Test
        void passes() {
        }

        @org.junit.jupiter.api.Test
        void fails() {
            org.junit.jupiter.api.Assertions.assertEquals(1, 2);
        }

        @org.junit.jupiter.api.RepeatedTest(2)
        void repeated() {
        }

        @org.junit.jupiter.api.Test
        void givesUp() {
            org.junit.jupiter.api.Assumptions.assumeTrue(false);
        }
    }

    public static class WithTestNG {
        @org.testng.annotations.Test
        public void passes() {
        }

        @org.testng.annotations.Test
        public void fails() {
            org.testng.Assert.assertEquals(1, 2);
        }

        @org.testng.annotations.Test
        public void throwsAnError() {
            throw new IllegalStateException("broken");
        }

        @org.testng.annotations.Test
        public void givesUp() {
            throw new org.testng.SkipException("not today");
        }
    }
}
