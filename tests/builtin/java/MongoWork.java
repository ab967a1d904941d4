import com.mongodb.MongoNamespace;
import com.mongodb.ReadPreference;
import com.mongodb.WriteConcern;
import com.mongodb.binding.ReadBinding;
import com.mongodb.binding.WriteBinding;
import com.mongodb.bulk.InsertRequest;
import com.mongodb.operation.CountOperation;
import com.mongodb.operation.InsertOperation;
import java.lang.reflect.Proxy;
import java.util.Collections;
import org.bson.BsonDocument;
import org.bson.BsonString;

/**
 * Two operations of the MongoDB driver, a count with a filter and an insert,
 * run on a binding that has no server to give them: each fails when it asks
 * for a connection.
 */
public class MongoWork {
    public static void main(String[] args) {
        MongoNamespace items = new MongoNamespace("shop.items");
        BsonDocument pen = new BsonDocument("name", new BsonString("pen"));
        try {
            new CountOperation(items).filter(pen).execute(binding(ReadBinding.class));
        } catch (IllegalStateException expected) {
            System.out.println("count: " + expected.getMessage());
        }
        try {
            new InsertOperation(items, true, WriteConcern.ACKNOWLEDGED, Collections.singletonList(new InsertRequest(pen)))
                    .execute(binding(WriteBinding.class));
        } catch (IllegalStateException expected) {
            System.out.println("insert: " + expected.getMessage());
        }
    }

    static <T> T binding(Class<T> type) {
        return type.cast(Proxy.newProxyInstance(MongoWork.class.getClassLoader(), new Class<?>[] {type}, (proxy, method, args) -> {
            switch (method.getName()) {
                case "getReadPreference":
                    return ReadPreference.primary();
                case "getSessionContext":
                    return com.mongodb.internal.connection.NoOpSessionContext.INSTANCE;
                case "retain":
                    return proxy;
                case "getCount":
                    return 1;
                case "release":
                    return null;
                default:
                    throw new IllegalStateException("no server here");
            }
        }));
    }
}
